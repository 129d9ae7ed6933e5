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
firmware="fw_board fw_sys fw_port fw_vlan fw_fdb fw_rx fw_link fw_ip fw_fault"
reports=/proc/zorva
sys=/sys/module/fw_sys/parameters
port=/sys/module/fw_port/parameters
vlan=/sys/module/fw_vlan/parameters
fdb=/sys/module/fw_fdb/parameters
rx=/sys/module/fw_rx/parameters
ip=/sys/module/fw_ip/parameters
fault=/sys/module/fw_fault/parameters

# What was shown last, and the part of it that expect and expect_no look at.
whole=
shown=

# The reports that were shown, whole or the part that matters.
seen=

# Whether the next command stands apart from what is above it.
gap=

# Above 6, the console has the kernel's messages already.
console_level=$(cut -f 1 /proc/sys/kernel/printk)

# The driver that takes the console's output into the kernel's log drops empty
# lines: each gets a blank.
lines()
{
	sed 's/^$/ /'
}

title()
{
	printf '\n=== %s\n' "$*" | lines
	gap=yes
}

# say LINE...: a paragraph for the reader.
say()
{
	printf '%s\n' '' "$@" | lines
	gap=yes
}

# prompt TEXT: what is typed, with an empty line after a title or a paragraph.
prompt()
{
	[ -z "$gap" ] || echo | lines
	gap=
	printf '# %s\n' "$1"
}

fail()
{
	printf '\ndemo.sh: FAILED: %s\n' "$*" | lines
	exit 1
}

# finish COMMAND...: runs a command, and gives up when it does not come back.
finish()
{
	local left=500

	"$@" &
	while kill -0 $! 2>/dev/null; do
		[ "$left" -gt 0 ] || fail "$*: does not come back"
		left=$((left - 1))
		sleep 0.02
	done
	wait $!
}

# typed WORD...: a command as one would type it, words that a shell would take
# apart or expand in quotes. No word has a single quote in it.
typed()
{
	local word line=

	for word in "$@"; do
		case $word in
		*[!A-Za-z0-9_.,:/=@%+-]*) word="'$word'" ;;
		esac
		line="$line${line:+ }$word"
	done
	printf '%s\n' "$line"
}

# show_status STATUS COMMAND...: runs a command that ends with such a status,
# and shows both it and what it prints.
show_status()
{
	local wanted=$1 status=0
	shift

	prompt "$(typed "$@")"
	whole=$("$@") || status=$?
	shown=$whole
	[ -z "$shown" ] || printf '%s\n' "$shown" | lines
	[ "$status" -eq "$wanted" ] || fail "$*: status $status"
}

show()
{
	show_status 0 "$@"
}

# report NAME: shows a whole report.
report()
{
	seen="$seen $1"
	show cat "$reports/$1"
}

# object REPORT NAME: shows what a report says about one object, from its name
# to the empty line.
object()
{
	seen="$seen $1"
	show sed -n "/: $2\$/,/^\$/p" "$reports/$1"
	expect "$2 in $1" ": $2\$"
}

# about NAME: of a report that was shown, looks at the part about one object.
about()
{
	shown=$(printf '%s\n' "$whole" | awk -v RS= -v name="$1" \
		'index($0 "\n", ": " name "\n")')
	[ -n "$shown" ] || fail "nothing about $1 above"
}

# What new_log gives begins here.
mark_log()
{
	log_mark=$(dmesg | wc -l)
}

# newest N: of the history that was shown, looks at the N newest calls.
newest()
{
	shown=$(printf '%s\n' "$shown" | grep -A "$1" '^-----' | tail -n "$1")
}

write_line()
{
	echo "$1" >"$2"
}

# put TEXT FILE: writes a line into a file of the kernel's.
put()
{
	prompt "echo \"$1\" >$2"
	mark_log
	finish write_line "$1" "$2" || fail "$2 refuses \"$1\""
}

# What the log got since mark_log, or the last put. The console's own lines, which may be in
# the log too, are marked with [U].
new_log()
{
	dmesg | tail -n +$((log_mark + 1)) | grep -v '\] \[U\] ' || true
}

# show_log PATTERN: of the new log the lines of zorva and of the firmware, of a
# stack dump their functions, and what matches.
show_log()
{
	shown=$(new_log | grep -E -e '\] (ZORVA|fw_[a-z]+)[ :]' \
		-e '\[(zorva|fw_[a-z]+)\]$' -e "$1") ||
		fail "nothing in the log"
	[ "$console_level" -gt 6 ] || {
		prompt dmesg
		printf '%s\n' "$shown"
	}
}

matches()
{
	printf '%s\n' "$shown" | grep -Eq -e "$1"
}

# expect WHAT PATTERN: a line of what was shown last matches the pattern.
expect()
{
	matches "$2" || fail "$1: no line like '$2' above"
}

expect_no()
{
	! matches "$2" || fail "$1: a line like '$2' above"
}

# await WHAT PATTERN COMMAND...: until a line of what the command prints matches.
await()
{
	local what=$1 pattern=$2 left=100
	shift 2

	until "$@" | grep -Eq -e "$pattern"; do
		[ "$left" -gt 0 ] ||
			fail "$what: no line like '$pattern' from: $*"
		left=$((left - 1))
		sleep 0.1
	done
}

# await_log WHAT PATTERN: the same for the new log, which is then shown.
await_log()
{
	await "$1" "$2" new_log
	show_log "$2"
}

load()
{
	if [ -d "/sys/module/$1" ]; then
		printf '(%s is loaded already)\n' "$1"
		return
	fi
	show insmod "$modules/$1.ko"
}

unload()
{
	prompt "rmmod $1"
	finish rmmod "$1" || fail "rmmod $1: status $?"
}

# --- The firmware comes and goes

load_modules()
{
	local module

	for module in $firmware; do
		load "$module"
	done
}

load_firmware()
{
	title "The firmware is loaded, the OS layer first"
	load zorva
	load_modules
	show ls "$reports"
	expect "the reports" '^zorva\.mem\.detail$'
}

give_work()
{
	put "10 office" $vlan/add
	put "20 voice" $vlan/add
	put "00:00:5e:00:53:01 1 10" $rx/frame
	put "00:00:5e:00:53:02 3 10" $rx/frame
	put "00:00:5e:00:53:03 6 20" $rx/frame
	await "three addresses" '^3$' cat $fdb/addresses
}

use_firmware()
{
	title "It gets something to do: two VLANs, three addresses"
	give_work
	put 1 $fdb/dump
	show_log '00:00:5e:|addresses$'
	expect "the address table" '00:00:5e:00:53:01 +1 +10 '
	expect "the address table" '00:00:5e:00:53:03 +6 +20 '
	expect "the number of addresses" '\] 3 addresses$'
}

unload_firmware()
{
	local module

	mark_log
	for module in fw_fault fw_ip fw_link fw_rx fw_fdb fw_vlan fw_port \
		fw_sys; do
		unload "$module"
	done
}

# What zorva itself has: blocks and bytes.
timer_memory()
{
	awk '$1 == "ZORVA" { print $6 + 0, $2 }' $reports/zorva.mem
}

nothing_left()
{
	report zorva.mem
	expect "the table's header" '^Component +Usage'
	shown=$(printf '%s\n' "$shown" | grep -v '^ZORVA ')
	expect_no "memory left behind" '\+[0-9]+ *$'
	show cat $reports/zorva.thread
	expect_no "a thread left behind" .
	show tail -n 2 $reports/zorva.mutex.detail
	expect "no mutex left" '^Total number of Mutex: 0 \(active 0\)$'
	show tail -n 2 $reports/zorva.sem.detail
	expect "no semaphore left" '^Total number of Semaphore: 0 \(active 0\)$'
	show cat $reports/zorva.msgq
	expect_no "a queue left behind" .
	show cat $reports/zorva.timer
	expect "the timer" '^PORT +[0-9]+ +0 +0 +0 +--$'
	expect_no "a timer left running" '\.c, [0-9]+$'
	show cat $reports/zorva.hrt
	expect "the clock's timer" '^TIME +[0-9]+ +0 +0 +0 +--$'
	expect_no "a timer left running" '\.c, [0-9]+$'
}

unload_all()
{
	title "The firmware is unloaded: what it made is gone"
	unload_firmware
	show_log '^$'
	expect "the sleeper's end" "Thread 'op-hours' exit"
	expect "the monitor's end" "Thread 'link-monitor' exit"
	expect "the queue's end" "MsgQ 'fdb-learn' has been deleted"
	say "Only the timers stay, and are idle: they cannot be deleted. Their" \
		"records belong to zorva itself:"
	nothing_left
	report zorva.mem.detail
	expect "a timer's record" ' bytes \(zorva_timer\.cp, [0-9]+\)$'
	shown=$(printf '%s\n' "$shown" |
		grep -Ev '\((zorva_timer\.cp|sys_sll\.cpp), ')
	expect_no "a block of another service" '^  \['
}

load_again()
{
	local before after

	title "The same again: two more timers, and nothing else"
	before=$(timer_memory)
	load_modules
	give_work
	unload_firmware
	nothing_left
	after=$(timer_memory)
	printf '%s\n%s\n' "$before" "$after" | awk '
		NR == 1 { blocks = $1; bytes = $2 }
		NR == 2 { ok = $1 == blocks + 4 && $2 > bytes }
		END { exit !ok }' ||
		fail "ZORVA had $before (blocks, bytes), now $after"
}

# --- Threads

threads()
{
	local name pid

	title "Who runs: the threads, their owners, states and priorities"
	say "State 1 sleeps, 2 sleeps and no signal wakes it. Priority 30 alone is" \
		"real time; all others are a nice value."
	report zorva.thread
	for name in op-hours fdb-learn fdb-save fdb-age port-rx-1 port-rx-2 \
		link-monitor link-poll; do
		expect "the thread $name" "^Name      : $name\$"
	done
	[ "$(printf '%s\n' "$shown" | grep -c '^PID ')" -eq 8 ] ||
		fail "not 8 threads above"
	about op-hours
	expect "its owner" '^Component : SYS$'
	expect "asleep" '^State     : 1$'
	about link-monitor
	expect "its owner" '^Component : PORT$'
	expect "its state" '^State     : 2$'
	expect "its priority" '^Priority  : 30$'
	pid=$(printf '%s\n' "$shown" | sed -n 's/^PID *: //p')
	show chrt -p "$pid"
	if dmesg | grep -q 'Set thread link-monitor scheduler failed'; then
		say "This kernel lets no module set that, and the thread runs on."
		expect "its scheduling" 'SCHED_OTHER$'
		return
	fi
	expect "its scheduling" 'SCHED_RR$'
	expect "its real-time priority" 'priority: 90$'
}

# --- Locks

locks()
{
	local all

	title "Which locks there are, and who took and gave them last"
	say "Nobody holds a mutex for long, so at most times there is none to show:"
	report zorva.mutex
	expect "none held" '^Number of Mutex: 0$'
	say "The detailed report has all; that of the chip is taken with each poll:"
	object zorva.mutex.detail chip
	expect "free" '^Status    : Give$'
	expect "the last give" '^  \[0{6}[0-9]{10}\] Give @fw_port\.c, [0-9]+$'
	expect "a take" '^  \[0{6}[0-9]{10}\] Take @fw_port\.c, [0-9]+$'
	show tail -n 2 $reports/zorva.mutex.detail
	expect "the total" '^Total number of Mutex: 7 \(active [4-7]\)$'
	all=$(grep -c '^Index ' $reports/zorva.mutex.detail)
	expect "as many as are listed" "active $all"
	say "Semaphores with no unit free: here, whose threads have nothing to do:"
	report zorva.sem
	expect "the ports' buffer is empty" '^Name      : msgq-port-rx-1-rx$'
	expect_no "the flash is free" '^Name      : flash$'
	object zorva.sem.detail fdb-age
	expect "waits with a limit" ' Take @fw_fdb\.c, [0-9]+ \(500 msec\)$'
}

# --- Messages and events

messages()
{
	title "Two port threads tell the address table what they see"
	report zorva.msgq
	about fdb-learn
	expect "its owner" '^Component ID : 17 \(FDB\)$'
	expect "its messages" '^Msg Size     : 16 bytes$'
	expect "its depth" '^Max Depth    : 8$'
	expect "its content" '^Curr Depth   : 0$'
	expect "its high-water mark" '^Max Seen     : [1-8]$'
	object zorva.sem.detail msgq-fdb-learn-rx
	expect "the receiver" ' Take @fw_fdb\.c, [0-9]+ \(forever\)$'
	expect "the senders" ' Give @fw_rx\.c, [0-9]+$'
}

link_changes()
{
	title "From a cable to the log: timer, wait module, thread, event, thread"
	say "A tick timer wakes the poller every 50 ms; it runs once for each" \
		"start, and starts itself again:"
	report zorva.timer
	expect "the columns" '^Component  Timer    Data  Msec     Running  StartBy'
	expect "the poll timer" \
		'^PORT +[0-9]+ +[0-9]+ +50 +1 +fw_link\.c, [0-9]+$'
	put "1 in" $port/cable
	await_log "the cable at port 1" 'fw_link: port 1: link up$'
	put "3 in" $port/cable
	await_log "the cable at port 3" 'fw_link: port 3: link up$'
	put "3 out" $port/cable
	await_log "the cable at port 3" 'fw_link: port 3: link down$'
	say "The addresses of the lost port are forgotten:"
	put 1 $fdb/dump
	show_log '00:00:5e:|addresses$'
	expect "the address of port 1" '00:00:5e:00:53:01 +1 +10 '
	expect_no "an address of port 3" '00:00:5e:[0-9a-f:]+ +3 '
	object zorva.sem.detail link-change
	expect "the monitor waits" ' Take @zorva_event\.cpp, [0-9]+ \(forever\)$'
}

# --- The clock

clock()
{
	local before after

	title "How late is a high-resolution timer? One measures itself"
	report zorva.hrt
	expect "the clock's timer" \
		'^TIME +[0-9]+ +0 +20 +1 +fw_sys\.c, [0-9]+$'
	show cat $sys/clock
	expect "a reading" '^[0-9]+ expiries, at most [0-9]{1,7} us late$'
	before=${shown%% *}
	sleep 0.2
	show cat $sys/clock
	expect "a reading" '^[0-9]+ expiries, at most [0-9]{1,7} us late$'
	after=${shown%% *}
	[ "$after" -gt "$before" ] || fail "the timer stands still"
}

# --- An incident, and how to find its cause

incident()
{
	local holder

	title "An incident: addresses are no longer learned"
	object zorva.msgq fdb-learn
	expect "empty" '^Curr Depth   : 0$'
	put busy $sys/flash
	put 1 $fdb/save
	await "the table is being saved" 'fdb-save' cat $reports/zorva.mutex
	put "00:00:5e:00:53:10 5 10 12" $rx/frame
	await "three lost frames" '^3$' cat $rx/lost
	show_log '^$'
	expect "what zorva says" \
		"ZORVA error: send to queue 'fdb-learn' failed \\(0x7000002a, fw_rx\\.c, [0-9]+\\)"
	say "The table's queue has been full for longer than its sender waits:"
	object zorva.msgq fdb-learn
	expect "full" '^Curr Depth   : 8$'
	expect "the high-water mark" '^Max Seen     : 8$'
	say "Does its reader live? It waits, and no signal would wake it:"
	object zorva.thread fdb-learn
	expect "blocked" '^State     : 2$'
	say "For a mutex. Locker has it, and took it first; the newest call is" \
		"that of the reader, still waiting:"
	report zorva.mutex
	expect "the only one" '^Number of Mutex: 1$'
	about fdb
	expect "held" '^Status    : Take$'
	expect "the holder" '^Locker    : [0-9]+ \(fdb-save\)$'
	object zorva.mutex.detail fdb
	expect "held" '^Status    : Take$'
	expect "the holder" '^Locker    : [0-9]+ \(fdb-save\)$'
	holder=$(printf '%s\n' "$shown" |
		sed -n 's/^Locker *: \([0-9]*\) .*/\1/p')
	newest 2
	[ "$(printf '%s\n' "$shown" | grep -Eo 'Take @fw_fdb\.c, [0-9]+$' |
		sort -u | wc -l)" -eq 2 ] ||
		fail "the two newest calls are not takes from two places"
	object zorva.thread fdb-save
	expect "the holder's PID" "^PID       : $holder\$"
	expect "blocked as well" '^State     : 2$'
	say "The holder waits for the flash: a semaphore that has run out. Its" \
		"unit went to the older take:"
	object zorva.sem flash
	expect "no unit free" '^Status    : Take$'
	expect "the waiter" ' Take @fw_fdb\.c, [0-9]+ \(30000 msec\)$'
	expect "who has the unit" ' Take @fw_sys\.c, [0-9]+ \(0 msec\)$'
}

incident_ends()
{
	title "The flash is free again, and everything goes on"
	put free $sys/flash
	await_log "the table is saved" 'fw_fdb: 2 addresses saved$'
	await "9 of 12 more are learned" '^11$' cat $fdb/addresses
	put 1 $fdb/dump
	show_log '00:00:5e:|addresses$'
	expect "the last that the queue held" '00:00:5e:00:53:18 +5 +10 '
	expect_no "the first that was lost" '00:00:5e:00:53:19 '
	object zorva.msgq fdb-learn
	expect "empty" '^Curr Depth   : 0$'
	expect "the high-water mark" '^Max Seen     : 8$'
	report zorva.mutex
	expect "none held" '^Number of Mutex: 0$'
	object zorva.sem.detail flash
	expect "a unit free" '^Status    : Give$'
	show grep Name $reports/zorva.sem
	expect_no "a semaphore that has run out" ' flash$'
}

# --- The end of a thread

ageing_ends()
{
	title "A thread is told to end while it waits, and does"
	object zorva.thread fdb-age
	expect "waiting, or about to look" '^State     : [02]$'
	put 0 $fdb/age
	show_log '^$'
	expect "told to end" "ZORVA info: Thread 'fdb-age' has been destroyed"
	expect "ended" "ZORVA info: Thread 'fdb-age' exit"
	show grep Name $reports/zorva.thread
	expect_no "the thread" ' fdb-age$'
	expect "another" ' fdb-save$'
	say "It ended inside its take, where it gave a unit back:"
	object zorva.sem.detail fdb-age
	expect "a unit free" '^Status    : Give$'
	newest 1
	expect "the newest call" ' Give @zorva_sem\.cpp, [0-9]+$'
}

ageing_starts()
{
	title "A new thread forgets what was not seen for more than a second"
	put 1 $fdb/age
	await "all are forgotten" '^0$' cat $fdb/addresses
	show_log '^$'
	expect "the new thread" "ZORVA info: Thread 'fdb-age' has been created"
	expect "what it does" 'fw_fdb: [0-9]+ addresses aged out$'
	object zorva.thread fdb-age
}

# --- Network events

neighbours()
{
	local first

	title "A neighbour of the management station, known and forgotten"
	show ip link set dummy0 arp on up
	show ip addr add 192.0.2.1/24 dev dummy0
	mark_log
	first=$log_mark
	show arp -s 192.0.2.9 00:00:5e:00:53:99 -i dummy0
	await_log "the neighbour" \
		'fw_ip: neighbour 192\.0\.2\.9 on dummy0: 00:00:5e:00:53:99, known$'
	show ip neigh
	mark_log
	show arp -d 192.0.2.9 -i dummy0
	await_log "its end" \
		'fw_ip: neighbour 192\.0\.2\.9 on dummy0: 00:00:5e:00:53:99, not known$'
	log_mark=$first
	show cat $ip/updates
	expect "as many as in the log" \
		"^$(new_log | grep -c 'fw_ip: neighbour')\$"
	show ip addr flush dev dummy0
	show ip link set dummy0 down
}

# --- Memory

memory_table()
{
	title "Who has how much memory"
	report zorva.mem
	expect "the system's memory" '^SYS( +[0-9]+){4} +\+1 *$'
	expect "the flash's semaphore" '^CFG( +[0-9]+){4} +\+1 *$'
	expect "the chip's memory" '^CHIP( +[0-9]+){4} +\+2 *$'
	expect "the ports' memory" '^PORT( +[0-9]+){4} +\+26 *$'
	expect "the transceivers' memory" '^PHY( +[0-9]+){4} +\+8 *$'
	expect "the address table's memory" '^FDB( +[0-9]+){4} +\+15 *$'
	expect "the VLANs' memory" '^VLAN( +[0-9]+){4} +\+5 *$'
	expect "the subscription's memory" '^IP( +[0-9]+){4} +\+1 *$'
}

memory_blocks()
{
	local blocks counted

	title "Every block: when it was allocated, its address, size and caller"
	counted=$(awk '/\+/ { sub(/.*\+/, ""); n += $1 } END { print n }' \
		$reports/zorva.mem)
	report zorva.mem.detail
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
	expect "the last component" '^Component   : IP$'
}

memory_overrun()
{
	title "An overrun: one byte too many, into the guard behind a block"
	put overrun $fault/fault
	say "Nobody has noticed yet, but the report shows it:"
	put VLAN $reports/zorva.mem.detail
	show cat $reports/zorva.mem.detail
	expect "the torn block" '^<memory corruption 0x[0-9a-f]+ invalid end 0x[0-9a-f]{8} \(expected 0xbbbbbbbb\) \(fw_fault\.c, [0-9]+\)>$'
	expect "the sound blocks" ' - (16|32) bytes \(fw_vlan\.c, [0-9]+\)$'

	say "The free notices, says so, and frees the block all the same:"
	put release $fault/fault
	show_log 'Call Trace'
	expect "the overrun's report" 'ZORVA error: Memory corruption: guard overwritten \(VLAN, fw_fault\.c:[0-9]+\)'
	expect "the stack dump" 'set_fault.*\[fw_fault\]$'
	show grep -c bytes $reports/zorva.mem.detail
	expect "the VLANs' blocks" '^5$'
	put all $reports/zorva.mem.detail
}

# A kernel with KASAN.
keeps_notes_in_freed_memory()
{
	grep -q ' kasan_report$' /proc/kallsyms
}

memory_double_free()
{
	local before

	title "A double free: the second is refused, and the first one's place known"
	before=$(grep '^FDB ' $reports/zorva.mem)
	put double-free $fault/fault
	show_log 'Call Trace'
	if keeps_notes_in_freed_memory; then
		say "This kernel watches its memory, and has written notes of its own" \
			"where the mark of a block was:"
		expect "the double free's report" 'ZORVA error: Memory header corrupt! Invalid magic\.'
	else
		expect "the double free's report" 'ZORVA error: Double free detected at fw_fault\.c:[0-9]+, originally allocated at fw_fault\.c:[0-9]+'
	fi
	expect "the stack dump" 'set_fault.*\[fw_fault\]$'

	say "It counts as one allocation and one free; before and after:"
	printf '%s\n' "$before"
	show grep FDB $reports/zorva.mem
	printf '%s\n%s\n' "$before" "$shown" | awk '
		NR == 1 { used = $2; allocs = $4; frees = $5 }
		NR == 2 { ok = $2 == used && $4 == allocs + 1 && $5 == frees + 1 }
		END { exit !ok }' || fail "the account is wrong"
}

# --- What an engineer would ask first

# The kernel's own checker of locks would stop the board.
checks_locks()
{
	[ -e /proc/lockdep ]
}

# Where the kernel shows no stacks, nothing proves what a thread waits for.
knows_stacks()
{
	[ -n "$(cat /proc/self/stack 2>/dev/null)" ]
}
deadlock='DEADLOCK'
knows_stacks || deadlock='(PROBABLY A DEADLOCK|probably a deadlock)'

# Where, in the firmware's source.
at='fw_fault\.c:[0-9]+'

expect_all_four()
{
	expect "the deadlock" \
		"^$deadlock: (stp|lag)-update .* and (stp|lag)-update .* wait for each other"
	expect "who waits where" "stp-update \\([0-9]+\\) wants mutex 'lag' at $at; lag-update \\([0-9]+\\) took it at $at\$"
	expect "who waits where" "lag-update \\([0-9]+\\) wants mutex 'stp' at $at; stp-update \\([0-9]+\\) took it at $at\$"
	expect "the torn block" "^DAMAGED BLOCK of VLAN, allocated at $at\$"
	expect "the full queue" "^FULL QUEUE 'snmp-trap' of SNMP: 4 of 4 messages\$"
	expect "who filled it" "last sent to at $at, "
	expect "the leak" "^GROWS, probably a leak: RMON at $at, "
}

uptime_secs()
{
	cut -d. -f1 /proc/uptime
}

four_faults()
{
	local name enough

	title "Is all well? One command looks at everything"
	load_modules
	give_work
	show zorva check
	expect "nothing wrong" '^Nothing looks wrong\.$'
	if checks_locks; then
		say "This kernel would stop at a deadlock: no faults on it."
		return
	fi
	title "A leak, a torn block, a full queue, two threads in a deadlock"
	# So long it takes to look like a leak. Where the kernel has more ticks
	# a second, the blocks alone come sooner.
	enough=$(($(uptime_secs) + 7))
	for name in leak overrun full-queue deadlock; do
		put "$name" $fault/fault
	done
	await "the leak" '^RMON( +[0-9]+){4} +\+(39|[4-9][0-9])' \
		cat $reports/zorva.mem
	while [ "$(uptime_secs)" -lt "$enough" ]; do
		sleep 0.1
	done
	show_status 1 zorva waits
	expect "the deadlock" \
		"^$deadlock: 2 threads wait for each other"
	say "A snapshot can be looked at later, or on another machine:"
	prompt "zorva-snapshot >/tmp/board.txt"
	zorva-snapshot >/tmp/board.txt
	show_status 1 zorva check /tmp/board.txt
	expect_all_four
	# For who reads the console's log afterwards.
	[ -z "${SHOW_SNAPSHOT-}" ] || show zorva-snapshot
	say "And here, now:"
	show_status 1 zorva check
	expect_all_four
}

all_reports_seen()
{
	local name

	for name in "$reports"/*; do
		name=${name##*/}
		case " $seen " in
		*" $name "*) ;;
		*) fail "$name was not shown" ;;
		esac
	done
}

load_firmware
use_firmware
memory_table
memory_blocks
threads
locks
messages
link_changes
clock
ageing_ends
incident
incident_ends
ageing_starts
neighbours
memory_overrun
memory_double_free
memory_filter
unload_all
load_again
all_reports_seen
four_faults

title "All as expected"
