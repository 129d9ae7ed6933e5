# SPDX-License-Identifier: GPL-2.0
# shellcheck shell=bash
#
# How the tests of the kit look at what a command says. Sourced.

# shellcheck source=target/lib.sh
. "$(dirname "${BASH_SOURCE[0]}")/../../target/lib.sh"

passed=0
failed=0
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

result()
{
	local text=$1 why=$2

	if [ -z "$why" ]; then
		echo "ok      $text"
		passed=$((passed + 1))
	else
		echo "FAILED  $text: $why"
		sed 's/^/        /' "$work/said"
		failed=$((failed + 1))
	fi
}

# says TEXT STATUS PATTERN COMMAND...: the command ends with this status ("not
# 0" for any but 0), and a line that matches is among what it says
says()
{
	local text=$1 wanted=$2 pattern=$3 status=0 why=
	shift 3

	"$@" >"$work/said" 2>&1 </dev/null || status=$?
	case $wanted in
	'not 0') [ "$status" -ne 0 ] || why="status 0" ;;
	*) [ "$status" -eq "$wanted" ] || why="status $status" ;;
	esac
	grep -Eq -- "$pattern" "$work/said" || why+="${why:+, }no '$pattern'"
	result "$text" "$why"
}

# says_only TEXT PATTERN COMMAND...: the command fails, and says this one line;
# what make adds does not count
says_only()
{
	local text=$1 pattern=$2 status=0 why=
	shift 2

	"$@" >"$work/all" 2>&1 </dev/null || status=$?
	grep -Ev '^make(\[[0-9]\])?: |^  [a-zA-Z]+: |^Building |^Installing: ' \
		"$work/all" >"$work/said" || true
	[ "$status" -ne 0 ] || why="status 0"
	[ "$(wc -l <"$work/said")" -eq 1 ] || why+="${why:+, }not one line"
	grep -Eq -- "$pattern" "$work/said" || why+="${why:+, }no '$pattern'"
	result "$text" "$why"
}

# said_too TEXT PATTERN: about the last command
said_too()
{
	local why=

	grep -Eq -- "$2" "$work/said" || why="no '$2'"
	result "$1" "$why"
}

# did_not_say TEXT PATTERN: about the last command
did_not_say()
{
	local why=

	! grep -Eq -- "$2" "$work/said" || why="'$2'"
	result "$1" "$why"
}

# conclude NAME [COUNTS]: sums up, and ends the script
conclude()
{
	echo "$1: $passed passed, $failed failed"
	[ -z "${2-}" ] || echo "$passed $failed" >"$2"
	[ "$failed" -eq 0 ]
	exit
}
