#!/bin/bash
# SPDX-License-Identifier: GPL-2.0
#
# Builds modules and test programs for the board in build/target, from a copy
# of their sources, so that the checkout stays as it is. KERNEL_BUILD names
# the kernel tree; the board's own is the default.
set -euo pipefail

# shellcheck source=target/lib.sh
. "$(dirname "$0")/lib.sh"

usage()
{
	cat <<END
usage: modules.sh PART...

  module    plat/linux/zorva
  examples  the example firmware
  tests     the suites and programs of tests/target
  bench     the measurements
  soak      the soak of tests/soak
  gdb       what tests/gdb halts, and the types that the debugger needs
  fleet     what ends a board of the fleet

Everything has its debug information.

Parts are built in the order given; the others need the module.
END
}

case ${1-} in
-h | --help)
	usage
	exit
	;;
esac
for part in "$@"; do
	case $part in
	module | examples | tests | bench | soak | gdb | fleet) ;;
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

kernel=${KERNEL_BUILD:-$("$ZORVA_ROOT/target/kernel/build.sh" --print-dir)}
[ -d "$kernel" ] || die "$kernel: no such kernel tree"
kernel=$(cd "$kernel" && pwd)
kernel_facts "$kernel"
copy=$ZORVA_BUILD/target
sources=(plat examples bench tests/target tests/soak tests/gdb tools/gdb
	tests/fleet)

build_lock

# Objects made against another kernel would pass for current ones.
if [ "$(cat "$copy/.kernel" 2>/dev/null)" != "$kernel" ]; then
	rm -rf "$copy"
fi
mkdir -p "$copy"

sync_sources()
{
	list_sources "${sources[@]}" |
		sync_files "$ZORVA_ROOT" "$copy"
	printf '%s\n' "$kernel" >"$copy/.kernel"
}

kbuild()
{
	local dir=$1
	shift

	make -C "$kernel" M="$copy/$dir" ARCH="$arch" \
		CROSS_COMPILE="$cross" ${clang:+LLVM=$clang} -j"$(jobs)" KCFLAGS=-g \
		${ZORVA_COMPONENTS:+ZORVA_COMPONENTS="$ZORVA_COMPONENTS"} \
		"$@" modules
}

# What is built on the module sees its headers and its exports, no more.
kbuild_user()
{
	kbuild "$1" ZORVA="$copy" ZORVA_INCLUDE="$copy/plat/linux/include" \
		KBUILD_EXTRA_SYMBOLS="$copy/plat/linux/zorva/Module.symvers"
}

programs()
{
	local source program include=$copy/plat/linux/include

	cd "$copy/tests/target/user"
	for program in *; do
		[ ! -x "$program" ] || [ -f "$program.cpp" ] || rm "$program"
	done
	for source in *.cpp; do
		[ -f "$source" ] || continue
		program=${source%.cpp}
		if [ -x "$program" ] && [ -z "$(find . "$include" \
			\( -name '*.h' -o -name "$source" \) \
			-newer "$program")" ]; then
			continue
		fi
		"${cross}g++" -static -O2 -Wall -I"$include" \
			-o "$program.tmp" "$source"
		mv "$program.tmp" "$program"
	done
}

step "modules: gather the sources" sync_sources
for part in "$@"; do
	case $part in
	module) step "modules: zorva" kbuild plat/linux/zorva ;;
	examples | bench) step "modules: $part" kbuild_user "$part" ;;
	soak) step "modules: soak" kbuild_user tests/soak ;;
	fleet) step "modules: fleet" kbuild tests/fleet ;;
	gdb)
		step "modules: gdb" kbuild_user tests/gdb
		step "modules: types for gdb" kbuild tools/gdb
		;;
	tests)
		step "modules: tests" kbuild_user tests/target
		step "modules: test programs" programs
		;;
	esac
done
