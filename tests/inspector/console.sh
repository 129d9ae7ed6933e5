#!/bin/bash
# SPDX-License-Identifier: GPL-2.0
#
# Reads the console's log of a board with four faults, and looks whether the
# inspector names each of them by file and line.
set -euo pipefail

# shellcheck source=target/lib.sh
. "$(dirname "$0")/../../target/lib.sh"

usage()
{
	cat <<END
usage: console.sh LOG

  LOG  the console of a board at the end of the demonstration, with a snapshot
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
log=$1
zorva=$ZORVA_BUILD/tools/zorva
modules=$ZORVA_BUILD/target/examples
at='fw_fault\.c:[0-9]+'
bad=0

# A kernel that checks locks is spared the faults.
if grep -q '^This kernel would stop at a deadlock' "$log"; then
	say "ok: the console's log (without faults, on this kernel)"
	exit
fi

# has PATTERN: a line of what was said last
has()
{
	grep -Eq -e "$1" <<<"$said" || {
		say "no line like '$1' in:" "$said"
		bad=1
	}
}

# check WORD...: what "zorva check" says of the log
check()
{
	local status=0

	said=$("$zorva" check "$@" 2>&1) || status=$?
	[ "$status" -eq 1 ] || {
		say "zorva check $*: status $status, and says:" "$said"
		bad=1
	}
	has '^DEADLOCK: .*(stp|lag)-update .* wait for each other'
	has "stp-update \([0-9]+\) wants mutex 'lag' at $at; lag-update \([0-9]+\) took it at $at"
	has "lag-update \([0-9]+\) wants mutex 'stp' at $at; stp-update \([0-9]+\) took it at $at"
	has "^DAMAGED BLOCK of VLAN, allocated at $at"
	has "^FULL QUEUE 'snmp-trap' of SNMP: 4 of 4 messages"
	has "last sent to at $at"
	has "^GROWS.* RMON at $at"
}

check "$log" --all --modules "$modules"
check "$log" --all
# As a serial line gives it.
sed 's/$/\r/' "$log" >"$log.crlf"
check "$log.crlf" --all --modules "$modules"
rm -f "$log.crlf"

if [ "$bad" -ne 0 ]; then
	say "FAILED: the faults in the console's log"
	exit 1
fi
say "ok: the faults in the console's log"
