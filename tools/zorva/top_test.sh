#!/bin/bash
# SPDX-License-Identifier: GPL-2.0
#
# The live screen in a terminal: what its keys show, and that it leaves the
# terminal as it was.
set -euo pipefail

if [ $# -ne 2 ]; then
	echo "usage: top_test.sh PROGRAM SOURCE" >&2
	exit 2
fi
program=$(realpath "$1")
source=$(realpath "$2")
work=$(mktemp -d)
tmux=(tmux -L "zorva-$$" -f /dev/null)
trap '"${tmux[@]}" kill-server 2>/dev/null || true; rm -rf "$work"' EXIT

# waits TEXT: until the terminal shows a text
waits()
{
	local left=150

	while ! "${tmux[@]}" capture-pane -p -t top | grep -qF -- "$1"; do
		left=$((left - 1))
		if [ "$left" -eq 0 ]; then
			echo "the terminal does not show: $1"
			"${tmux[@]}" capture-pane -p -t top
			exit 1
		fi
		sleep 0.2
	done
}

keys()
{
	"${tmux[@]}" send-keys -t top "$@"
}

for size in "80 24" "200 60"; do
	read -r columns lines <<<"$size"
	cat >"$work/run" <<-END
	stty -a >"$work/before"
	"$program" top "$source"
	echo "status \$?"
	stty -a >"$work/after"
	read -r _
	END
	"${tmux[@]}" new-session -d -s top -x "$columns" -y "$lines" \
		"TERM=vt100 bash $work/run"
	waits "q quit"
	waits "COMPONENT"
	keys "?"
	waits "select a row"
	keys "?"
	waits "COMPONENT"
	keys s
	waits "sort: growth"
	keys / f d b Enter
	waits "filter: fdb"
	keys j Enter
	waits "newest first"
	keys Escape
	waits "filter: fdb"
	keys Space
	waits "FROZEN"
	keys q
	waits "status 0"
	cmp "$work/before" "$work/after"
	"${tmux[@]}" kill-session -t top
done

# A signal ends it in order, too.
"${tmux[@]}" new-session -d -s top -x 80 -y 24 \
	"bash -c 'stty -a >$work/before; $program top $source; stty -a >$work/after; echo ended; read -r _'"
waits "q quit"
pkill -TERM -f "^$program top $source" || { echo "not running" && exit 1; }
waits "ended"
cmp "$work/before" "$work/after"

# Without a terminal it says what to do.
status=0
"$program" top "$source" </dev/null >"$work/out" 2>&1 || status=$?
[ "$status" -eq 2 ]
grep -q -- --batch "$work/out"
