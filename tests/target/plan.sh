# SPDX-License-Identifier: GPL-2.0
# shellcheck shell=sh disable=SC2034 # used where this is sourced
#
# What runs on the board, in this order, and how many results each has to
# give: on the host, one that gives another number has failed.
#
#	suite NAME COUNT	the suite of zorva_NAME_test.ko, "zorva_NAME"
#	program NAME COUNT	the program /opt/tests/NAME
#	last NAME COUNT		the same, once nothing but zorva is loaded
#	host NAME COUNT		the script NAME.sh, on the host, afterwards
#
# A name after the count is that of the only architecture that it is for.
#
# The suites of memory and the programs come first: they want the lists of
# blocks for themselves, and other services keep some for good. The first that
# makes a lock has to be lock_report, which sees that there was none. Those of
# timers come last, in this order: timers stay, and there is a limit to them.
plan='
suite debug 14
suite mem 32
suite mem_fault 21
suite mem_context 4
suite mem_report 28
suite lib 15
suite time 10
program proc_entries 9
program proc_read 15
program proc_write 20
program proc_nomem 6
suite lock_report 20
suite mutex 27
suite sem 28
suite thread 29
suite atomic 11
suite lock_load 5
suite msgq 18
suite msgq_args 6
suite msgq_use 11
suite msgq_wait 14
suite msgq_fault 19
suite msgq_delete 7
suite msgq_load 5
suite msgq_align 3 mips
suite event 23
suite event_fault 19
suite sleep 26
suite wait 30
suite netevent 13
suite sweep 9
suite timer 41
suite hrt 42
suite timer_load 13
last proc_lifetime 8
host check_atomics 6 mips
host check_modinfo 4
'
