# SPDX-License-Identifier: GPL-2.0
# shellcheck shell=bash
#
# A terminal for tests, by tmux: one at a time, of the script that sources this.

terminals=0
tmux=()

# terminal COLUMNS LINES COMMAND: starts a command in a new terminal. A server
# that is about to end takes no new one.
terminal()
{
	terminal_end
	terminals=$((terminals + 1))
	tmux=(tmux -L "zorva-$$-$terminals" -f /dev/null)
	"${tmux[@]}" new-session -d -s test -x "$1" -y "$2" "$3"
}

terminal_end()
{
	[ ${#tmux[@]} -eq 0 ] || "${tmux[@]}" kill-server 2>/dev/null || true
}

screen()
{
	"${tmux[@]}" capture-pane -p -t test
}

# keys KEY...: presses them
keys()
{
	"${tmux[@]}" send-keys -t test "$@"
}

# shows TEXT [SECONDS]: waits until the terminal shows it, at most so long (30);
# ends the script when it does not
shows()
{
	await "does not show" "$@"
}

# shows_no TEXT [SECONDS]: the same, until it is gone
shows_no()
{
	await "still shows" "$@"
}

await()
{
	local problem=$1 text=$2 left=$((${3:-30} * 5)) shown

	for (( ; left > 0; left--)); do
		shown=yes
		screen | grep -qF -- "$text" || shown=
		case $problem in
		still*) [ -n "$shown" ] || return 0 ;;
		*) [ -z "$shown" ] || return 0 ;;
		esac
		sleep 0.2
	done
	echo "the terminal $problem: $text"
	screen
	exit 1
}
