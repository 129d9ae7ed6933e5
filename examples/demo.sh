#!/bin/sh
# SPDX-License-Identifier: GPL-2.0
# shellcheck shell=dash
#
# The example firmware at work, on the board: what the reports show while it
# runs, and what happens when it goes wrong. Checks all that it shows, and ends
# with an error at the first line that is missing.
#
# Each service of zorva has chapters of its own; they are called in order at
# the end. What one chapter leaves behind, the next may rely on.
set -eu

modules=/lib/modules/zorva
reports=/proc/zorva
fdb=/sys/module/fw_fdb/parameters

# What was shown last: expect and expect_no look at it.
shown=

# Above 6, the console has the kernel's messages already.
console_level=$(cut -f 1 /proc/sys/kernel/printk)

title()
{
	printf '\n=== %s\n\n' "$*"
}

fail()
{
	printf '\ndemo.sh: FAILED: %s\n' "$*"
	exit 1
}

# show COMMAND...: runs a command, and shows both it and what it prints.
show()
{
	printf '# %s\n' "$*"
	shown=$("$@") || fail "$*: status $?"
	printf '%s\n' "$shown"
}

# put TEXT FILE: writes a line into a file of the kernel's.
put()
{
	printf '# echo "%s" >%s\n' "$1" "$2"
	log_mark=$(dmesg | wc -l)
	echo "$1" >"$2" || fail "$2 refuses \"$1\""
}

# show_log PATTERN: what the log got from the last put: the lines of zorva and
# of the firmware, of a stack dump their functions, and what matches. The
# console's own lines, which may be in the log too, are marked with [U].
show_log()
{
	shown=$(dmesg | tail -n +$((log_mark + 1)) | grep -v '\] \[U\] ' |
		grep -E -e '\] (ZORVA|fw_[a-z]+)[ :]' \
			-e '\[(zorva|fw_[a-z]+)\]$' -e "$1") ||
		fail "nothing in the log"
	[ "$console_level" -gt 6 ] || printf '# dmesg\n%s\n' "$shown"
}

# expect WHAT PATTERN: a line of what was shown last matches the pattern.
expect()
{
	printf '%s\n' "$shown" | grep -Eq -e "$2" ||
		fail "$1: no line like '$2' above"
}

expect_no()
{
	! printf '%s\n' "$shown" | grep -Eq -e "$2" ||
		fail "$1: a line like '$2' above"
}

load()
{
	if [ -d "/sys/module/$1" ]; then
		printf '# %s is loaded already\n' "$1"
		return
	fi
	show insmod "$modules/$1.ko"
}

# --- The firmware comes and goes

load_firmware()
{
	title "The firmware is loaded, the OS layer first"
	load zorva
	load fw_board
	load fw_port
	load fw_fdb
	show ls "$reports"
	expect "the reports" '^zorva\.mem\.detail$'
}

use_firmware()
{
	title "It gets something to do: two VLANs, three addresses"
	put "10 office" $fdb/vlan
	put "20 voice" $fdb/vlan
	put "00:00:5e:00:53:01 1 10" $fdb/learn
	put "00:00:5e:00:53:02 3 10" $fdb/learn
	put "00:00:5e:00:53:03 3 20" $fdb/learn
	put 1 $fdb/dump
	show_log '00:00:5e:|Address'
	expect "the address table" '00:00:5e:00:53:03 +3 +20 '
}

unload_firmware()
{
	title "The firmware is unloaded: nothing is left"
	show rmmod fw_fdb
	show rmmod fw_port
	show cat $reports/zorva.mem
	expect "the table's header" '^Component +Usage'
	expect_no "memory left behind" '\+[0-9]+ *$'
	show cat $reports/zorva.mem.detail
	expect_no "memory left behind" '^Component'
}

# --- Memory

memory_table()
{
	title "Who has how much memory"
	show cat $reports/zorva.mem
	expect "the chip's memory" '^CHIP( +[0-9]+){4} +\+1 *$'
	expect "the ports' memory" '^PORT( +[0-9]+){4} +\+9 *$'
	expect "the transceivers' memory" '^PHY( +[0-9]+){4} +\+8 *$'
	expect "the address table's memory" '^FDB( +[0-9]+){4} +\+4 *$'
	expect "the VLANs' memory" '^VLAN( +[0-9]+){4} +\+4 *$'
}

memory_blocks()
{
	local blocks counted

	title "Every block: when it was allocated, its address, size and caller"
	counted=$(awk '/\+/ { sub(/.*\+/, ""); n += $1 } END { print n }' \
		$reports/zorva.mem)
	show cat $reports/zorva.mem.detail
	expect "a block of the chip's" ' - 512 bytes \(fw_port\.c, [0-9]+\)$'
	expect "an address's block" ' - [0-9]+ bytes \(fw_fdb\.c, [0-9]+\)$'
	expect_no "damage" 'memory corruption'
	blocks=$(printf '%s\n' "$shown" | grep -c '^  \[[0-9]*\] ')
	[ "$blocks" -eq "$counted" ] ||
		fail "$blocks blocks are listed, the table counts $counted"
}

memory_filter()
{
	title "Only the VLANs' blocks (\"all\" shows every component again)"
	put VLAN $reports/zorva.mem.detail
	show cat $reports/zorva.mem.detail
	expect "the chosen component" '^Component   : VLAN$'
	expect_no "another component" '^Component   : (CHIP|PORT|PHY|FDB)$'

	put all $reports/zorva.mem.detail
	show grep Component $reports/zorva.mem.detail
	expect "the first component" '^Component   : CHIP$'
	expect "the last component" '^Component   : VLAN$'
}

memory_overrun()
{
	title "An overrun: one byte too many, into the guard behind a block"
	put overrun $fdb/fault
	printf '\nNobody has noticed yet, but the report shows it:\n\n'
	put VLAN $reports/zorva.mem.detail
	show cat $reports/zorva.mem.detail
	expect "the torn block" '^<memory corruption 0x[0-9a-f]+ invalid end 0x[0-9a-f]{8} \(expected 0xbbbbbbbb\) \(fw_fdb\.c, [0-9]+\)>$'
	expect "the sound blocks" ' - 16 bytes \(fw_fdb\.c, [0-9]+\)$'

	printf '\nThe free notices, says so, and frees the block all the same:\n\n'
	put release $fdb/fault
	show_log 'Call Trace'
	expect "the overrun's report" 'ZORVA error: Memory corruption: guard overwritten \(VLAN, fw_fdb\.c:[0-9]+\)'
	expect "the stack dump" 'set_fault.*\[fw_fdb\]$'
	show grep -c bytes $reports/zorva.mem.detail
	expect "the VLANs' blocks" '^4$'
	put all $reports/zorva.mem.detail
}

memory_double_free()
{
	local before

	title "A double free: the second is refused, and the first one's place known"
	before=$(grep '^FDB ' $reports/zorva.mem)
	put double-free $fdb/fault
	show_log 'Call Trace'
	expect "the double free's report" 'ZORVA error: Double free detected at fw_fdb\.c:[0-9]+, originally allocated at fw_fdb\.c:[0-9]+'
	expect "the stack dump" 'set_fault.*\[fw_fdb\]$'

	printf '\nIt counts as one allocation and one free; before and after:\n\n'
	printf '%s\n' "$before"
	show grep FDB $reports/zorva.mem
	printf '%s\n%s\n' "$before" "$shown" | awk '
		NR == 1 { used = $2; allocs = $4; frees = $5 }
		NR == 2 { ok = $2 == used && $4 == allocs + 1 && $5 == frees + 1 }
		END { exit !ok }' || fail "the account is wrong"
}

load_firmware
use_firmware
memory_table
memory_blocks
memory_overrun
memory_double_free
memory_filter
unload_firmware

title "All as expected"
