#!/bin/bash
# SPDX-License-Identifier: GPL-2.0
#
# Soaks the module on the board: all services at once, at random, against a
# model. Fails when anything comes out that the model does not allow, when the
# kernel complains in any way, or when a report cannot be read meanwhile.
set -euo pipefail

here=$(cd "$(dirname "$0")" && pwd)
# shellcheck source=target/lib.sh
. "$here/../../target/lib.sh"

usage()
{
	cat <<END
usage: run.sh [SECONDS [SEED]]

  SECONDS  how long the board is soaked, 10 to 21474836 (60)
  SEED     what its actors decide by, below 2^32; another one each time

Environment: KERNEL_BUILD (a kernel tree instead of the board's own),
BOARD_TIMEOUT (how long the board may run; 2 * SECONDS + 300), BOARD_ARGS
(more options for boot.sh), CROSS_COMPILE, ZORVA_CACHE.
END
}

case ${1-} in
-h | --help)
	usage
	exit
	;;
esac

# in_range NUMBER FIRST LAST
in_range()
{
	[[ $1 =~ ^[0-9]{1,10}$ ]] &&
		[ "$1" -ge "$2" ] && [ "$1" -le "$3" ]
}

seconds=${1:-60}
seed=${2:-$((RANDOM * 32768 + RANDOM))}
# In less time not every actor makes the steps that are looked at in the end;
# and the board compares its ticks as signed numbers of 32 bits.
if [ $# -gt 2 ] || ! in_range "$seconds" 10 21474836 ||
	! in_range "$seed" 0 4294967295; then
	usage >&2
	exit 2
fi
# Zeros in front would make them octal.
seconds=$((10#$seconds))
seed=$((10#$seed))

KERNEL_BUILD=${KERNEL_BUILD:-$("$ZORVA_ROOT/target/kernel/build.sh" \
	--print-dir)}
export KERNEL_BUILD
kernel_facts "$KERNEL_BUILD"
out=$ZORVA_BUILD/soak
log=$ZORVA_LOGS/soak-console.log
mkdir -p "$out"

build_lock
say "soak: $seconds seconds, SEED=$seed"
"$ZORVA_ROOT/target/busybox/build.sh" --arch "$arch"
"$ZORVA_ROOT/target/modules.sh" module soak

# The failures are wanted: the kernel need not show each one's stack. The user
# reads the reports until the soak is over; the last line is only printed
# when every read has worked.
cat >"$out/scenario" <<END
#!/bin/sh
modules=/lib/modules/zorva

verbose=/sys/kernel/debug/failslab/verbose
[ ! -f \$verbose ] || echo 0 >\$verbose
insmod "\$modules/zorva.ko" || exit
(
	reads=0
	set -- /proc/zorva/*
	while [ ! -f /tmp/over ]; do
		cat "\$@" >/tmp/report || exit
		reads=\$((reads + \$#))
		sleep 0.1
	done
	echo "soak: the user has read \$reads reports"
	touch /tmp/read
) &
# The kernel's own tracers, where it has them, in turns.
(
	cd /sys/kernel/debug/tracing 2>/dev/null || exit
	for tracer in irqsoff preemptoff; do
		grep -qw "\$tracer" available_tracers || exit
		echo 0 >"/tmp/\$tracer"
	done
	while [ ! -f /tmp/over ]; do
		for tracer in irqsoff preemptoff; do
			echo "\$tracer" >current_tracer
			echo 0 >tracing_max_latency
			sleep 2
			longest=\$(cat tracing_max_latency)
			[ "\$longest" -le "\$(cat "/tmp/\$tracer")" ] ||
				echo "\$longest" >"/tmp/\$tracer"
		done
	done
	for tracer in irqsoff preemptoff; do
		echo "soak: \$tracer: \$(cat "/tmp/\$tracer") us at most"
	done
) &
insmod "\$modules/zorva_soak.ko" seed=$seed seconds=$seconds || exit
touch /tmp/over
wait
[ -f /tmp/read ] || exit
[ "\$(cat /sys/module/zorva_soak/parameters/violations)" = 0 ]
END

"$ZORVA_ROOT/target/rootfs/mkroot.sh" "$out/root.cpio.gz" \
	"$ZORVA_BUILD/target/plat/linux/zorva/zorva.ko" \
	"$ZORVA_BUILD/target/tests/soak/zorva_soak.ko" \
	"$out/scenario=/etc/scenario"

status=0
# shellcheck disable=SC2086 # several words
"$ZORVA_ROOT/target/boot.sh" --kernel "$KERNEL_BUILD/$image" \
	--arch "$arch" \
	--initrd "$out/root.cpio.gz" --log "$log" \
	--timeout "${BOARD_TIMEOUT:-$((seconds * 2 + 300))}" \
	${BOARD_ARGS-} || status=$?

grep -E '^(\[[^]]*\] )?soak: ' "$log" | sed 's/^\[[^]]*\] //' || true
# No failure that is injected here makes the kernel warn.
complaints=$(grep -E -m 2 -A 20 'WARNING: |INFO: |BUG: |unaligned' "$log" ||
	true)
if [ -n "$complaints" ]; then
	say "soak: the kernel complains:" "$complaints"
	status=1
fi
grep -q 'soak: 0 violations$' "$log" || status=1
if [ "$status" -ne 0 ]; then
	say "soak: FAILED; SEED=$seed repeats it; console: $log"
	exit 1
fi
say "soak: ok, $seconds seconds, SEED=$seed"
