#!/bin/bash
# SPDX-License-Identifier: GPL-2.0
#
# The target tests on the board's other kernels, with one summary: the one
# that watches itself, the stock one, which does not let modules choose a
# real-time priority, and the board's own without a clock but its ticks.
set -euo pipefail

# shellcheck source=target/lib.sh
. "$(dirname "$0")/../../target/lib.sh"

usage()
{
	cat <<END
usage: kernels.sh

Environment: BOARD_TIMEOUT (seconds; 1200), BOARD_ARGS (more options for
boot.sh), CROSS_COMPILE, ZORVA_CACHE.
END
}

case ${1-} in
'') ;;
-h | --help)
	usage
	exit
	;;
*)
	usage >&2
	exit 2
	;;
esac

cd "$ZORVA_ROOT"
mkdir -p "$ZORVA_BUILD" "$ZORVA_LOGS"
all_failed=0
summary=

# Runs the tests and keeps the logs. Its callers ask for its status, so it is
# not ended by a command that fails.
tests_on()
{
	local name=$1 args=$2 counts=$3 status=0 kernel log
	shift 3

	target/kernel/build.sh "$@" || return
	kernel=$(target/kernel/build.sh "$@" --print-dir) || return
	build_lock
	rm -f "$ZORVA_LOGS"/{test,run}-console.log
	KERNEL_BUILD=$kernel BOARD_TIMEOUT=${BOARD_TIMEOUT:-1200} \
		BOARD_ARGS="$args ${BOARD_ARGS-}" \
		target/board.sh test "$counts" || status=$?
	for log in test run; do
		[ ! -f "$ZORVA_LOGS/$log-console.log" ] ||
			mv "$ZORVA_LOGS/$log-console.log" \
				"$ZORVA_LOGS/$log-console-$name.log"
	done
	return "$status"
}

# on NAME BOARD-ARGS OPTION...: the tests on the kernel that build.sh makes
# with these options
on()
{
	local name=$1 args=$2 counts=$ZORVA_BUILD/kernel-$1.counts
	local passed=0 failed=0 status=0 start=$SECONDS
	shift 2

	say "== the $name kernel"
	rm -f "$counts"
	# The lock goes with the subshell.
	(tests_on "$name" "$args" "$counts" "$@") || status=$?
	[ ! -f "$counts" ] || read -r passed failed <"$counts"
	# Tests that broke off before they were counted, or that had no kernel,
	# have failed all the same, and so have none at all.
	if [ "$failed" -eq 0 ] &&
		{ [ "$status" -ne 0 ] || [ "$passed" -eq 0 ]; }; then
		failed=1
	fi
	all_failed=$((all_failed + failed))
	summary+=$(printf '%-8s %5d passed, %d failed, %d s' "$name" \
		"$passed" "$failed" $((SECONDS - start)))$'\n'
}

# Red zones around every object of the heap, and checks of its lists. All that
# takes instructions, so this board runs by the host's time.
BOARD_ICOUNT='' on debug "--append slub_debug=FZ" --with target/kernel/debug.config
on stock "" --without-patches
on coarse "--append clocksource=jiffies"

say "== all kernels"
printf '%s' "$summary"
[ "$all_failed" -eq 0 ]
