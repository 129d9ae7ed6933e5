#!/usr/bin/env bash
# SPDX-License-Identifier: GPL-2.0
#
# Builds and runs the inspector's own tests, in build/tools-test.
set -euo pipefail

usage()
{
	cat <<END
usage: run_tests.sh [COUNTS]

  COUNTS  a file for "PASSED FAILED", the numbers of tests; it is not written
          when they cannot be built
END
}

case ${1-} in
-*)
	usage
	[ "$1" = -h ] || [ "$1" = --help ] || exit 2
	exit
	;;
esac
source=$(cd "$(dirname "$0")" && pwd)
build=$(cd "$source/../.." && pwd)/build/tools-test
log=$build/run.log
counts=${1:-}

# A build started from make must not join that make's job server.
unset MAKEFLAGS MFLAGS MAKELEVEL MAKEOVERRIDES

show_log_and_die()
{
	cat "$log" >&2
	echo "tools: $1" >&2
	exit 1
}

mkdir -p "$build"
exec 9>"$build/.lock"
flock -n 9 || {
	echo "tools: waiting: another run uses $build"
	flock 9
}
[ -z "$counts" ] || rm -f "$counts"

cmake -S "$source" -B "$build" -DZORVA_TOOL_TESTS=ON >"$log" 2>&1 ||
	show_log_and_die "cannot be configured"
cmake --build "$build" --parallel "$(nproc)" >"$log" 2>&1 ||
	show_log_and_die "cannot be built"
grep -A3 'warning:' "$log" >&2 || true

start=$SECONDS
status=0
ctest --test-dir "$build" --parallel "$(nproc)" --output-on-failure \
	--no-tests=error >"$log" 2>&1 || status=$?
totals=$(sed -n 's/.*, \([0-9]*\) tests failed out of \([0-9]*\)$/\1 \2/p' \
	"$log")
[ -n "$totals" ] || show_log_and_die "cannot be run"
read -r failed total <<<"$totals"
passed=$((total - failed))

[ "$status" -eq 0 ] || grep -vE ' Passed +[0-9.]+ sec$|^ +Start +[0-9]+:' \
	"$log" >&2
[ -z "$counts" ] || echo "$passed $failed" >"$counts"
echo "tools: $passed passed, $failed failed ($((SECONDS - start)) s)"
exit "$status"
