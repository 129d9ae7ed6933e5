#!/usr/bin/env bash
# SPDX-License-Identifier: GPL-2.0
#
# What the board has just printed on its console is understood: a text of the
# module that has changed, and that the inspector does not know, shows here.
# Uses the program that run_tests.sh has built.
set -euo pipefail

usage()
{
	cat <<END
usage: check_console.sh LOG [COUNTS]

  LOG     the console of the demonstration
  COUNTS  a file for "PASSED FAILED", the numbers of checks
END
}

case ${1-} in
-h | --help)
	usage
	exit
	;;
'' | -*)
	usage >&2
	exit 2
	;;
esac
log=$1
counts=${2:-}
zorva=$(cd "$(dirname "$0")/../.." && pwd)/build/tools-test/zorva
passed=0
failed=0

[ -f "$log" ] || {
	echo "check_console.sh: $log: no such file" >&2
	exit 1
}
for command in "mem" "mem --by site" torn queues timers threads; do
	status=0
	# shellcheck disable=SC2086 # several words
	out=$("$zorva" $command --json "$log") || status=$?
	if [ "$status" -le 1 ] && grep -q '"errors": 0,' <<<"$out"; then
		passed=$((passed + 1))
	else
		failed=$((failed + 1))
		echo "console: zorva $command $log: status $status" >&2
		"$zorva" "${command%% *}" --verbose "$log" 2>&1 >/dev/null |
			head -n 20 >&2 || true
	fi
done
[ -z "$counts" ] || echo "$passed $failed" >"$counts"
echo "console: $passed passed, $failed failed"
[ "$failed" -eq 0 ]
