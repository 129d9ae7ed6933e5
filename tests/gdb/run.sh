#!/bin/bash
# SPDX-License-Identifier: GPL-2.0
#
# Halts the emulated board by its debugger port, once while it runs and once
# after a panic, and compares what zorva-gdb.py reads there with what the
# report files said on the board.
set -euo pipefail

# shellcheck source=target/lib.sh
. "$(dirname "$0")/../../target/lib.sh"

usage()
{
	cat <<END
usage: run.sh [COUNTS]

  COUNTS  a file for "PASSED FAILED", the numbers of checks

KERNEL_BUILD names the kernel tree; the board's own is the default.
END
}

case ${1-} in
-*)
	usage
	[ "$1" = -h ] || [ "$1" = --help ] || exit 2
	exit
	;;
esac
counts=${1:+$(realpath -m "$1")}
KERNEL_BUILD=${KERNEL_BUILD:-$("$ZORVA_ROOT/target/kernel/build.sh" \
	--print-dir)}
export KERNEL_BUILD
built=$ZORVA_BUILD/target
work=$ZORVA_BUILD/gdb
console=$ZORVA_LOGS/gdb-console.log
reports="mutex mutex.detail sem sem.detail mem mem.detail thread timer hrt msgq"
passed=0
failed=0

check()
{
	local text=$1
	shift

	if "$@" >"$work/check.log" 2>&1; then
		say "ok: $text"
		passed=$((passed + 1))
	else
		say "FAILED: $text"
		head -n 20 "$work/check.log" | sed 's/^/        /' >&2
		failed=$((failed + 1))
	fi
}

build_lock
rm -rf "$work"
mkdir -p "$work"
"$ZORVA_ROOT/target/busybox/build.sh"
"$ZORVA_ROOT/target/modules.sh" module gdb
"$ZORVA_ROOT/target/rootfs/mkroot.sh" "$work/root.cpio.gz" \
	"$built/plat/linux/zorva/zorva.ko" "$built/tests/gdb/zorva_dead.ko" \
	"$ZORVA_ROOT/tests/gdb/scenario.sh=/etc/scenario"

# The emulator ends when the debugger has killed what it ran.
run_board()
{
	"$ZORVA_ROOT/target/boot.sh" --kernel "$KERNEL_BUILD/vmlinux" \
		--initrd "$work/root.cpio.gz" --log "$console" \
		--timeout "${BOARD_TIMEOUT:-300}" --gdb "$work/gdb.sock" \
		--icount 4 --append panic=0 >"$work/boot.log" 2>&1 || true
}

# The panic has printed its text when it begins to wait.
debug()
{
	gdb-multiarch -nx -batch \
		-ex "set tcp connect-timeout 60" \
		-ex "source $ZORVA_ROOT/tools/gdb/zorva-gdb.py" \
		-ex "target remote $work/gdb.sock" \
		-ex "break dump_stack" -ex "continue" \
		-ex "zorva-reports $work/running --module $built/plat/linux/zorva/zorva.ko --types $built/tools/gdb/types.o" \
		-ex "delete" -ex "break panic" -ex "continue" \
		-ex "delete" -ex "tbreak __udelay" -ex "continue" \
		-ex "zorva-reports $work/panicked --module $built/plat/linux/zorva/zorva.ko --types $built/tools/gdb/types.o" \
		-ex "kill" \
		"$KERNEL_BUILD/vmlinux"
}

run_both()
{
	local board

	run_board &
	board=$!
	while [ ! -S "$work/gdb.sock" ] && kill -0 "$board" 2>/dev/null; do
		sleep 0.2
	done
	# An emulator that ends takes its connection with it, which gdb may call
	# an error. What was written shows whether all went well.
	debug || true
	wait "$board"
}

step "gdb: the board, halted twice" run_both

# What the board has read, from its console.
mkdir -p "$work/board"
for name in $reports; do
	sed -n "s/^report zorva\.$name: \{0,1\}//p" "$console" \
		>"$work/board/zorva.$name"
done

# In each report there is something to compare.
has_all()
{
	local name bad=0

	for name in $reports; do
		[ "$(wc -l <"$work/board/zorva.$name")" -gt 3 ] ||
			{ echo "zorva.$name: next to nothing" && bad=1; }
	done
	[ "$(grep -c 'memory corruption' "$work/board/zorva.mem.detail")" -eq 3 ] ||
		{ echo "zorva.mem.detail: not three torn blocks" && bad=1; }
	grep -q 'invalid end 0x5a5a000c' "$work/board/zorva.mem.detail" ||
		{ echo "zorva.mem.detail: no torn size" && bad=1; }
	grep -q '(forever)' "$work/board/zorva.sem.detail" || bad=1
	grep -q '^Curr Depth   : 4$' "$work/board/zorva.msgq" || bad=1
	! grep 'reading took too long' "$console" || bad=1
	return "$bad"
}

# After the panic the clock has gone on; nothing else of zorva's has.
same_but_for_time()
{
	local time='/^Current Time : /d'

	diff -u <(sed "$time" "$1") <(sed "$time" "$2")
}

# one_line TEXT COMMAND...: gdb says this and no more of what goes wrong.
refuses()
{
	local text=$1
	shift

	gdb-multiarch -nx -batch -ex "set python print-stack none" \
		-ex "source $ZORVA_ROOT/tools/gdb/zorva-gdb.py" "$@" \
		>"$work/refusal" 2>&1 || true
	cat "$work/refusal"
	grep -qF -- "$text" "$work/refusal" &&
		! grep -q Traceback "$work/refusal"
}

check "the board's own reports have what is to be compared" has_all
for name in $reports; do
	check "halted: zorva.$name is the same to the byte" \
		diff -u "$work/board/zorva.$name" "$work/running/zorva.$name"
	check "after a panic: zorva.$name is the same but for the time" \
		same_but_for_time "$work/board/zorva.$name" \
		"$work/panicked/zorva.$name"
done
check "without a kernel it says so" refuses "no kernel: connect to one" \
	-ex "zorva-reports $work/none"
check "without a directory it says how it is used" \
	refuses "zorva-reports --help" -ex "zorva-reports"

echo "gdb: $passed passed, $failed failed"
[ -z "$counts" ] || echo "$passed $failed" >"$counts"
[ "$failed" -eq 0 ]
