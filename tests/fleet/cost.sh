#!/bin/sh
# SPDX-License-Identifier: GPL-2.0
# shellcheck shell=dash
#
# On a board that counts instructions, one for each 16 nanoseconds of its time:
# what zorva metrics costs, against a cat of the reports that it reads. Each is a
# program that is started for it, as the web server does: from the fork to when
# the shell has its status.
set -eu

modules=/lib/modules/zorva
reports=/proc/zorva
times=100

# The board's time in nanoseconds, which /proc/uptime has only in hundredths of
# a second.
now()
{
	local first second rest

	# shellcheck disable=SC2034 # the rest is the unit
	while read -r first second nanoseconds rest; do
		[ "$first $second" != "now at" ] || return 0
	done </proc/timer_list
	return 1
}

# each COMMAND...: thousands of instructions that one of many took
each()
{
	local start i=0

	"$@" >/dev/null
	now
	start=$nanoseconds
	while [ "$i" -lt "$times" ]; do
		"$@" >/dev/null
		i=$((i + 1))
	done
	now
	echo $(((nanoseconds - start) / 16 / times / 1000))
}

measure()
{
	local reading metrics

	reading=$(each cat $reports/zorva.mutex $reports/zorva.thread \
		$reports/zorva.msgq $reports/zorva.mem /proc/uptime)
	metrics=$(each zorva metrics)
	echo "cost: $1: reading $reading, metrics $metrics"
}

for module in zorva fw_board fw_sys fw_port fw_vlan fw_fdb fw_rx fw_link \
	fw_ip fw_fault; do
	insmod "$modules/$module.ko"
done
sleep 1
measure "at rest"
for fault in overrun full-queue deadlock; do
	echo "$fault" >/sys/module/fw_fault/parameters/fault
done
sleep 1
measure "in trouble"

# Who may not read the detailed report gets the figures all the same: it is
# read for damage alone.
chmod 0 $reports/zorva.mem.detail
setuidgid operator zorva metrics >/dev/null
if setuidgid operator zorva metrics --torn >/dev/null 2>&1; then
	echo "damage was looked for without the report that shows it"
	exit 1
fi
