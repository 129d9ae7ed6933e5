# SPDX-License-Identifier: GPL-2.0
# shellcheck shell=bash
#
# The four faults of examples/fw_fault.c, as "zorva check" has to name them:
# each by file and line. Sourced after target/lib.sh.

# How many times something was not as it has to be.
bad=0

wrong()
{
	say "$@"
	bad=$((bad + 1))
}

# has PATTERN: a line of what was said last
has()
{
	grep -Eq -e "$1" <<<"$said" || wrong "no line like '$1' in:" "$said"
}

# names_all_faults COMMAND...
names_all_faults()
{
	local ended=0 at='fw_fault\.c:[0-9]+'

	said=$("$@" 2>&1) || ended=$?
	[ "$ended" -eq 1 ] || wrong "$*: status $ended, and says:" "$said"
	has '^DEADLOCK: .*(stp|lag)-update .* wait for each other'
	has "stp-update \([0-9]+\) wants mutex 'lag' at $at; lag-update \([0-9]+\) took it at $at"
	has "lag-update \([0-9]+\) wants mutex 'stp' at $at; stp-update \([0-9]+\) took it at $at"
	has "^DAMAGED BLOCK of VLAN, allocated at $at"
	has "^FULL QUEUE 'snmp-trap' of SNMP: 4 of 4 messages"
	has "last sent to at $at"
	has "^GROWS.* RMON at $at"
}
