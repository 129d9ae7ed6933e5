#!/bin/sh
# SPDX-License-Identifier: GPL-2.0
# shellcheck shell=dash
#
# On the board: makes a switch at rest, reads its ten reports, gives the
# debugger a moment in the same second of the module's clock, prints what was
# read, and lets the kernel panic.
set -eu

now()
{
	sed -n 's/^Current Time : //p' /proc/zorva/zorva.mutex
}

insmod /lib/modules/zorva/zorva.ko
insmod /lib/modules/zorva/zorva_dead.ko

begin=$(now)
while [ "$(now)" = "$begin" ]; do
	:
done
mkdir /tmp/reports
cp /proc/zorva/* /tmp/reports
echo stop >/sys/module/zorva_dead/parameters/end
end=$(now)
[ "$end" -eq $((begin + 1)) ] || echo "reading took too long: $begin to $end"

cd /tmp/reports
for name in *; do
	sed "s/^/report $name: /" "$name"
done
echo panic >/sys/module/zorva_dead/parameters/end
