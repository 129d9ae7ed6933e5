#!/bin/bash
# SPDX-License-Identifier: GPL-2.0
#
# Every check there is, one summary. Each level runs whatever the ones before
# it gave, and writes "PASSED FAILED" into a file of its own.
set -euo pipefail

# shellcheck source=target/lib.sh
. "$(dirname "$0")/lib.sh"

usage()
{
	cat <<END
usage: test-all.sh

Environment: as for board.sh.
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
mkdir -p "$ZORVA_BUILD"
all_passed=0
all_failed=0
summary=

# run NAME COMMAND...: a level, and beside its counts how it ended, and after
# how many seconds
run()
{
	local name=$1 counts=$ZORVA_BUILD/$1.counts status=0 start=$SECONDS
	shift

	rm -f "$counts"
	say "== $name"
	"$@" "$counts" || status=$?
	echo "$status $((SECONDS - start))" >"$ZORVA_BUILD/$name.status"
}

sum_up()
{
	local name=$1 counts=$ZORVA_BUILD/$1.counts passed=0 failed=0
	local status seconds

	read -r status seconds <"$ZORVA_BUILD/$name.status"
	if [ -f "$counts" ]; then
		read -r passed failed <"$counts"
	fi
	# A level that broke before it could count has failed all the same, and
	# so has one that checked nothing.
	if [ "$failed" -eq 0 ] && { [ "$status" -ne 0 ] || [ "$passed" -eq 0 ]; }; then
		say "$name: ended with status $status after $passed checks"
		failed=1
	fi
	all_passed=$((all_passed + passed))
	all_failed=$((all_failed + failed))
	summary+=$(printf '%-8s %5d passed, %d failed, %d s' "$name" \
		"$passed" "$failed" "$seconds")$'\n'
}

rm -f "$ZORVA_BUILD"/{lint,kit,unit,host,tools,target,console}.status
run lint tests/lint.sh
run kit tests/kit/messages.sh

# The board keeps one processor busy, so the tests on this machine are compiled
# and run meanwhile; what they print comes when all are done.
say "== unit: in the background"
{
	run unit tests/unit/run.sh
	say "== host"
	HOST_WIDTHS=64 run host tests/host/run.sh
	say "== tools"
	run tools tools/zorva/run_tests.sh
} >"$ZORVA_BUILD/unit.out" 2>&1 &
run target target/board.sh test
wait
cat "$ZORVA_BUILD/unit.out"
run console tools/zorva/check_console.sh "$ZORVA_LOGS/run-console.log"

for name in lint kit unit host tools target console; do
	sum_up "$name"
done
say "== all"
printf '%s' "$summary"
echo "$all_passed passed, $all_failed failed"
[ "$all_failed" -eq 0 ]
