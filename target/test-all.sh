#!/bin/bash
# SPDX-License-Identifier: GPL-2.0
#
# The checks of every change, or all that there are, with one summary. Each
# level runs whatever the ones before it gave, and writes "PASSED FAILED" into a
# file of its own.
set -euo pipefail

# shellcheck source=target/lib.sh
. "$(dirname "$0")/lib.sh"

usage()
{
	cat <<END
usage: test-all.sh [--slow [DEADLINE]]

  --slow    runs what is slow as well
  DEADLINE  when all has to be over, in seconds as of "date +%s": what is slow
            and would not be done by then is left out, and named

Environment: as for board.sh.
END
}

slow=
deadline=
case ${1-} in
'') ;;
--slow)
	slow=yes
	deadline=${2-}
	;;
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

# run_slow NAME SECONDS COMMAND...: a level that takes so long on two
# processors, if there is time; it is ended when the time is over
run_slow()
{
	local name=$1 needs=$2 left
	shift 2

	levels+=("$name")
	if [ -z "$deadline" ]; then
		run "$name" "$@"
		return
	fi
	left=$((deadline - $(date +%s)))
	if [ "$left" -lt "$needs" ]; then
		unset 'levels[-1]'
		left_out+=("$name ($needs s; $((left > 0 ? left : 0)) s were left)")
		return
	fi
	run "$name" timeout --kill-after=20 "$left" "$@"
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

rm -f "$ZORVA_BUILD"/*.status
levels=(lint kit unit host tools target console)
left_out=()
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

# shellcheck disable=SC2016 # the counts, for the inner shell
if [ -n "$slow" ]; then
	run_slow docs 80 bash -c 'docs/site/build.sh && docs/site/test.sh "$0"'
	run_slow install 120 tests/packaging/install.sh
	if [ "$(id -u)" -eq 0 ]; then
		run_slow deb 560 bash -c 'packaging/deb.sh &&
			tests/packaging/deb.sh "$0"'
	else
		left_out+=("deb (only root can make a root)")
	fi
	run_slow host32 70 env HOST_WIDTHS='64;32' tests/host/run.sh
	run_slow gdb 60 tests/gdb/run.sh
	run_slow report 30 tests/report/run.py "$ZORVA_BUILD/tools/zorva" \
		tools/zorva/samples "$ZORVA_BUILD/report"
	# Its boards have a kernel of their own; built first.
	run_slow fleet 800 tests/fleet/run.sh
	run_slow modules 600 tests/kit/run.sh
	# The kernel after the target's, on the same board; built first.
	run_slow later 1400 env KERNELS=6.12 ARCHES=mips tests/target/kernels.sh
fi

for name in "${levels[@]}"; do
	sum_up "$name"
done
say "== all"
printf '%s' "$summary"
for name in "${left_out[@]}"; do
	echo "left out: $name"
done
echo "$all_passed passed, $all_failed failed"
[ "$all_failed" -eq 0 ]
