#!/bin/bash
# SPDX-License-Identifier: GPL-2.0
#
# The inspector at the serial console of a board with four faults: the live
# screen, snapshots by the script and by the program, and then, here, what was
# logged of that console. Uses what "board.sh test" has built.
set -euo pipefail

# shellcheck source=target/lib.sh
. "$(dirname "$0")/../../target/lib.sh"
# shellcheck source=tools/zorva/tmux.sh
. "$ZORVA_ROOT/tools/zorva/tmux.sh"
# shellcheck source=tests/inspector/faults.sh
. "$ZORVA_ROOT/tests/inspector/faults.sh"

usage()
{
	cat <<END
usage: board.sh ARCHIVE

  ARCHIVE  the root file system of "make run"

Environment: KERNEL_BUILD (the kernel's tree).
END
}

case ${1-} in
-h | --help)
	usage
	exit
	;;
esac
if [ $# -ne 1 ] || [ ! -f "$1" ]; then
	usage >&2
	exit 2
fi

zorva=$ZORVA_ROOT/build/tools/zorva
modules=$ZORVA_BUILD/target/examples
log=$ZORVA_LOGS/inspector-console.log
work=$(mktemp -d)
trap 'terminal_end; rm -rf "$work"' EXIT
kernel_facts "$KERNEL_BUILD"
count=0

# typed COMMAND: a command at the board's prompt; "said" gets what it printed
# there, and "status" its exit status
typed()
{
	count=$((count + 1))
	keys -l "echo begin-\$((1 + 1)); $1; echo ended-\$?-$count-\$((1 + 1))"
	keys Enter
	shows "-$count-2" 120
	until grep -q "^ended-[0-9]*-$count-2" "$log"; do
		sleep 0.1
	done
	status=0
	said=$(tr -d '\r' <"$log" | awk -v last="-$count-2" '
	/^begin-2$/ {
		said = ""
		next
	}
	/^ended-/ && index($0, last) {
		split($0, field, "-")
		status = field[2]
		exit
	}
	{
		said = said $0 "\n"
	}
	END {
		printf "%s", said
		exit status
	}') || status=$?
	keys -l clear
	keys Enter
	shows_no "-$count-2"
}

terminal 80 24 "'$ZORVA_ROOT/target/boot.sh' --kernel '$KERNEL_BUILD/$image' \
	--initrd '$1' --shell; echo the board has ended; read -r _"
"${tmux[@]}" pipe-pane -t test "cat >'$log'"
shows "board:" 120

# --- Snapshots by the script and by the program, and their sums

# static FILE: of a snapshot what does not change while nothing goes on
static()
{
	awk -v wanted='(zorva\.[a-z.]+|version|modules)$' '
	/^==> / {
		keep = $3 ~ wanted
		if ($3 !~ "^/proc/[0-9]")
			print $3
		next
	}
	/^zorva-snapshot / {
		keep = 0
		print $1, $2
	}
	keep && !/^Current Time/' "$1"
}

typed "modprobe fw_fault"
for made in zorva-snapshot "zorva snapshot"; do
	typed "$made"
	printf '%s\n' "$said" >"$work/$made"
	said=$("$zorva" mem --verbose "$work/$made" 2>&1) || true
	! grep -q 'checksum\|cut off' <<<"$said" || wrong "$made:" "$said"
	static "$work/$made" >"$work/static $made"
	# The sum is looked at: another character is noticed.
	sed 's/^Component  Usage/Component  usage/' "$work/$made" \
		>"$work/changed"
	said=$("$zorva" mem "$work/changed" 2>&1) || true
	has 'was changed on its way: its end says [0-9]+ bytes with checksum [0-9]+'
done
diff "$work/static zorva-snapshot" "$work/static zorva snapshot" ||
	wrong "the script's snapshot is not the program's"
[ "$(grep -c 'zorva/zorva\.' "$work/static zorva-snapshot")" -eq 10 ] ||
	wrong "not ten reports:" "$(cat "$work/static zorva-snapshot")"

# --- The faults. A kernel that checks locks is spared them.
typed "test -e /proc/lockdep"
if [ "$status" -eq 0 ]; then
	say "ok: the inspector on the board (without faults, on this kernel)"
	exit
fi
# The leak shows after five seconds.
typed "for f in leak overrun full-queue deadlock
do echo \$f >/sys/module/fw_fault/parameters/fault; done; sleep 8"

# --- The live screen, on a console of 80x24
typed "stty -g >/tmp/before"
keys -l "zorva top --interval 1; echo top-\$?"
keys Enter
shows "zorva top  up"
shows "COMPONENT"
shows "FULL"
keys "?"
shows "select a row"
keys "?"
shows "COMPONENT"
keys s
shows "sort: growth"
shows "/h"
screen | sed -n 3p | grep -q '^RMON ' ||
	wrong "what grows is not the first:" "$(screen)"
keys d
shows "ALLOCATED AT"
keys / s t p Enter
shows "filter: stp"
screen | grep -q '^mutex stp ' ||
	wrong "no mutex of that name:" "$(screen)"
! screen | grep -q 'snmp-trap' || wrong "another name:" "$(screen)"
keys Tab Tab Enter
shows "its last calls, newest first"
shows "fw_fault.c:"
keys Escape
shows "LOCK HELD"
keys Space
shows "FROZEN"
up=$(screen | head -n 1)
sleep 3
[ "$up" = "$(screen | head -n 1)" ] || wrong "it is not frozen"
keys Space
shows_no "$up"
keys q
shows "top-0"
typed "stty -g >/tmp/after; cmp /tmp/before /tmp/after"
[ "$status" -eq 0 ] || wrong "the terminal is not as it was: $said"

# --- All four faults: here and now, from a snapshot, from the console's log
typed "export NO_COLOR=1"
typed "zorva check"
live()
{
	printf '%s\n' "$said"
	return "$status"
}
names_all_faults live
typed "zorva snapshot -o /tmp/board.txt; zorva check /tmp/board.txt"
names_all_faults live
typed zorva-snapshot
printf '%s\n' "$said" >"$work/late"
names_all_faults "$zorva" check "$work/late"
names_all_faults "$zorva" check "$work/late" --modules "$modules"
typed "tail -n +1 /proc/zorva/*"
keys -l exit
keys Enter
shows "the board has ended"
names_all_faults "$zorva" check "$log"

if [ "$bad" -ne 0 ]; then
	say "FAILED: the inspector on the board; its console: $log"
	exit 1
fi
say "ok: the inspector on the board"
