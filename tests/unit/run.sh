#!/usr/bin/env bash
# SPDX-License-Identifier: GPL-2.0
#
# Builds and runs the unit tests, in build/unit.
set -euo pipefail

usage()
{
	cat <<END
usage: run.sh [--coverage] [--build-only] [COUNTS]

  --coverage    count what runs of the module, in build/coverage instead
  --build-only  build the tests and run none
  COUNTS        a file for "PASSED FAILED", the numbers of tests; it is not
                written when they cannot be built

ORDERS=N runs the tests of several tasks in N orders more (10).
END
}

name=unit
options=()
run=(--orders="${ORDERS:-10}")
build_only=
while [[ ${1-} = -* ]]; do
	case $1 in
	--coverage)
		name=coverage
		options=(-DZORVA_COVERAGE=ON)
		run=(--run)
		;;
	--build-only)
		build_only=yes
		;;
	*)
		usage
		[ "$1" = -h ] || [ "$1" = --help ] || exit 2
		exit
		;;
	esac
	shift
done
source=$(cd "$(dirname "$0")" && pwd)
build=$(cd "$source/../.." && pwd)/build/$name
log=$build/run.log
counts=${1:-}

# shellcheck source=target/lib.sh
. "$source/../../target/lib.sh"

show_log_and_die()
{
	cat "$log" >&2
	die "$1"
}

mkdir -p "$build"
exec 9>"$build/.lock"
flock -n 9 || {
	say "$name: waiting: another run uses $build"
	flock 9
}
[ -z "$counts" ] || rm -f "$counts"

step "$name: configure" cmake -S "$source" -B "$build" "${options[@]}"
step "$name: compile" cmake --build "$build" --parallel "$(jobs)"
grep -A3 'warning:' "$ZORVA_LOGS/$name-compile.log" >&2 || true
[ -z "$build_only" ] || exit 0

start=$SECONDS
status=0
"$build/unit" "${run[@]}" >"$log" 2>&1 || status=$?

# The last line has it all: "263 passed, 4 failed".
totals=$(sed -n '$s/^\([0-9]*\) passed, \([0-9]*\) failed$/\1 \2/p' "$log")
[ -n "$totals" ] || show_log_and_die "cannot be run"
read -r passed failed <<<"$totals"
[ "$status" -eq 0 ] || cat "$log" >&2
[ -z "$counts" ] || echo "$passed $failed" >"$counts"
echo "unit: $passed passed, $failed failed ($((SECONDS - start)) s)"
exit "$status"
