#!/bin/bash
# SPDX-License-Identifier: GPL-2.0
#
# Builds the inspector, for this machine and for the board.
set -euo pipefail

# shellcheck source=target/lib.sh
. "$(dirname "$0")/lib.sh"

usage()
{
	cat <<END
usage: tools.sh desk | board | lines | debugger...

  desk   build/tools/zorva
  board  build/tools/board/zorva: static, stripped, for the board's processor
         or that of KERNEL_BUILD
  lines  build/tools/board/modules.lines: the lines of what modules.sh has
         built, for the board; needs the desk's
  debugger
         build/tools/gdb: zorva-gdb.py, and beside it what it needs of the
         board's kernel and of the module that modules.sh builds

Environment: KERNEL_BUILD (a kernel tree instead of the board's own),
CROSS_COMPILE, ZORVA_CACHE.
END
}

# The board's flash has no room for more.
most_bytes=$((2 * 1024 * 1024))
tools=$ZORVA_BUILD/tools
# This machine's is the same for whatever board.
desk=$ZORVA_ROOT/build/tools

case ${1-} in
-h | --help)
	usage
	exit
	;;
esac
for part in "$@"; do
	case $part in
	desk | board | lines | debugger) ;;
	*)
		usage >&2
		exit 2
		;;
	esac
done
if [ $# -eq 0 ]; then
	usage >&2
	exit 2
fi

# build DIR OPTION...
build()
{
	local dir=$1
	shift

	cmake -S "$ZORVA_ROOT/tools/zorva" -B "$dir" "$@"
	cmake --build "$dir" --parallel "$(jobs)" --target zorva
}

build_board()
{
	local bytes curses=

	need_cross_compiler "$cross"
	[ "$arch" != mips ] ||
		curses=$("$ZORVA_ROOT/target/ncurses/build.sh" --print-dir)
	build "$tools/board" -DZORVA_BOARD=ON \
		-DZORVA_CURSES_DIR="$curses" \
		-DCMAKE_SYSTEM_NAME=Linux \
		-DCMAKE_SYSTEM_PROCESSOR="$arch" \
		-DCMAKE_CXX_COMPILER="${cross}g++" \
		-DCMAKE_AR="$(command -v "${cross}ar")" \
		-DCMAKE_RANLIB="$(command -v "${cross}ranlib")"
	bytes=$(stat -c %s "$tools/board/zorva")
	if [ "$arch" = mips ] && [ "$bytes" -gt "$most_bytes" ]; then
		echo "$tools/board/zorva has $bytes bytes, at most" \
			"$most_bytes are wanted"
		return 1
	fi
}

build_lines()
{
	"$desk/zorva" lines --modules "$ZORVA_BUILD/target/examples" \
		>"$tools/board/modules.lines.new"
	mv "$tools/board/modules.lines.new" "$tools/board/modules.lines"
}

gather_debugger()
{
	local built=$ZORVA_BUILD/target

	mkdir -p "$tools/gdb"
	cp "$ZORVA_ROOT/tools/gdb/zorva-gdb.py" \
		"$built/plat/linux/zorva/zorva.ko" \
		"$built/tools/gdb/types.o" "$tools/gdb"
}

kernel_facts "${KERNEL_BUILD-}"
build_lock
mkdir -p "$tools/board" "$desk"
for part in "$@"; do
	case $part in
	desk) step "tools: the desk's" build "$desk" ;;
	board)
		# A live screen is of use where somebody sits before it.
		[ "$arch" != mips ] || "$ZORVA_ROOT/target/ncurses/build.sh"
		step "tools: the board's" build_board
		;;
	lines) step "tools: the lines of the modules" build_lines ;;
	debugger)
		"$ZORVA_ROOT/target/modules.sh" module gdb
		step "tools: the debugger's" gather_debugger
		;;
	esac
done
