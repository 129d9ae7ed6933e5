#!/bin/bash
# SPDX-License-Identifier: GPL-2.0
#
# What only a terminal sees. The live screen: what its keys show, and that it
# leaves the terminal as it was. Progress, of what takes long.
set -euo pipefail

if [ $# -ne 2 ]; then
	echo "usage: terminal_test.sh PROGRAM SOURCE" >&2
	exit 2
fi
# shellcheck source=tools/zorva/tmux.sh
. "$(dirname "$0")/tmux.sh"
program=$(realpath "$1")
source=$(realpath "$2")
work=$(mktemp -d)
trap 'terminal_end; rm -rf "$work"' EXIT

# run COLUMNS LINES TERM COMMAND: a command, its status, and the terminal's
# settings before and afterwards
run()
{
	cat >"$work/run" <<-END
	stty -a >"$work/before"
	$4
	echo "status \$?"
	stty -a >"$work/after"
	echo ended
	read -r _
	END
	terminal "$1" "$2" "TERM=$3 bash $work/run"
}

ended()
{
	shows "status $1"
	shows "ended"
	cmp "$work/before" "$work/after"
}

# A terminal that nobody knows is taken for a VT100; until then, curses itself
# has lost a record.
for size in "80 24 vt100 1" "200 60 screen 1" "80 24 of-somebody-else 0"; do
	read -r columns lines term leaks <<<"$size"
	export ASAN_OPTIONS=detect_leaks=$leaks
	run "$columns" "$lines" "$term" "'$program' top '$source'"
	shows "q quit"
	shows "COMPONENT"
	keys "?"
	shows "select a row"
	keys "?"
	shows "COMPONENT"
	keys s
	shows "sort: growth"
	keys / f d b Enter
	shows "filter: fdb"
	keys j Enter
	shows "newest first"
	keys Escape
	shows "filter: fdb"
	keys Space
	shows "FROZEN"
	keys q
	ended 0
done
unset ASAN_OPTIONS

# A signal ends it in order, too.
run 80 24 vt100 "bash -c 'echo \$\$ >$work/pid; exec $program top $source'"
shows "q quit"
kill -TERM "$(cat "$work/pid")"
ended 0

# Without a terminal it says what to do.
status=0
"$program" top "$source" </dev/null >"$work/out" 2>&1 || status=$?
[ "$status" -eq 2 ]
grep -q -- --batch "$work/out"

# A reading that lasts longer than a second says so, and nothing of it stays.
slow="cmd:sleep 8; cat $source"
run 80 24 vt100 "'$program' queues --from '$slow'"
shows "cmd:sleep 8; cat"
shows "... 0 B"
ended 1
if screen | grep -qF "..."; then
	echo "the progress is still shown"
	screen
	exit 1
fi
"$program" queues "$slow" >"$work/out" 2>"$work/errors" || [ $? -eq 1 ]
if grep -q "cmd:" "$work/errors"; then
	echo "progress is shown, but not on a terminal"
	exit 1
fi
