#!/bin/sh
# SPDX-License-Identifier: GPL-2.0
# shellcheck shell=dash
#
# On a board of the fleet: the example firmware runs, and the faults are made
# that the kernel's command line names (FAULTS=leak,overrun). A snapshot is taken
# then, and another one 30 s later. It goes on until the folder that it shares
# with the host says otherwise, by a file called "panic" or "end".
set -eu

modules=/lib/modules/zorva
firmware="zorva fw_board fw_sys fw_port fw_vlan fw_fdb fw_rx fw_link fw_ip fw_fault"

# A file of that name is a whole one.
snapshot()
{
	zorva-snapshot >"/mnt/$1.new"
	mv "/mnt/$1.new" "/mnt/$1"
}

for module in $firmware; do
	insmod "$modules/$module.ko"
done
for fault in $(echo "${FAULTS-}" | tr , ' '); do
	echo "$fault" >/sys/module/fw_fault/parameters/fault
done
sleep 4
snapshot first.txt
sleep 30
snapshot later.txt

while [ ! -e /mnt/end ]; do
	[ ! -e /mnt/panic ] || insmod "$modules/zorva_panic.ko"
	sleep 0.5
done
