#!/bin/bash
# SPDX-License-Identifier: GPL-2.0
#
# Counts instructions on the board, and bytes of the module: a table, build/bench/bench.json, and
# build/bench/bench.svg. Fails when a limit is missed, or when what has been
# measured was not what it should be.
set -euo pipefail

here=$(cd "$(dirname "$0")" && pwd)
# shellcheck source=target/lib.sh
. "$here/../target/lib.sh"

usage()
{
	cat <<END
usage: run.sh [--update | --latency]

  --update   replace the picture, the numbers and their tables in docs/, too,
             unless it fails
  --latency  only print the longest times with interrupts and with preemption
             off that the kernel's own tracers see while the longest reports are
             read; for a kernel with target/kernel/latency.config

Environment: KERNEL_BUILD (a kernel tree instead of the board's own),
CROSS_COMPILE, ZORVA_CACHE, BENCH_ICOUNT (0: the figures repeat exactly; 4 is
ten times as fast, and differs by some thousandths).
END
}

case ${1-} in
'' | --update | --latency) ;;
-h | --help)
	usage
	exit
	;;
*)
	usage >&2
	exit 2
	;;
esac

kernel=${KERNEL_BUILD:-$("$ZORVA_ROOT/target/kernel/build.sh" --print-dir)}
export KERNEL_BUILD=$kernel
out=$ZORVA_BUILD/bench
mkdir -p "$out"

build_lock
"$ZORVA_ROOT/target/busybox/build.sh"
"$ZORVA_ROOT/target/modules.sh" module bench

cat >"$out/scenario" <<'END'
#!/bin/sh
insmod /lib/modules/zorva/zorva.ko && insmod /lib/modules/zorva/zorva_bench.ko
dmesg | grep 'bench: '
END
cat >"$out/scenario-debug" <<'END'
#!/bin/sh
insmod /lib/modules/zorva/zorva.ko &&
	insmod /lib/modules/zorva/zorva_bench.ko only_kernel=1
dmesg | grep 'bench: '
END
chmod +x "$out"/scenario*

# measure NAME OPTION...: the rows of one boot in $out/NAME.rows
measure()
{
	local name=$1 scenario=$2
	shift 2

	"$ZORVA_ROOT/target/rootfs/mkroot.sh" "$out/$name.cpio.gz" \
		"$ZORVA_BUILD/target/plat/linux/zorva/zorva.ko" \
		"$ZORVA_BUILD/target/bench/zorva_bench.ko" \
		"$scenario=/etc/scenario"
	step "bench: $name" "$ZORVA_ROOT/target/boot.sh" \
		--kernel "$kernel/vmlinux" --initrd "$out/$name.cpio.gz" \
		--log "$out/$name.log" --timeout 900 --icount "${BENCH_ICOUNT:-0}" "$@"
	tr -d '\r' <"$out/$name.log" |
		sed -n 's/.*bench: \([a-z_0-9]* [0-9]* [0-9]*\)$/\1/p' |
		awk '!seen[$1]++' >"$out/$name.rows"
	[ -s "$out/$name.rows" ] || die "no numbers in $out/$name.log"
	! grep 'bench: error: ' "$out/$name.log" >&2 ||
		die "not measured as it should be: $out/$name.log"
}

# longest TRACER WHAT: what the kernel's tracer has seen at most.
longest()
{
	cat >"$out/scenario-$1" <<END
#!/bin/sh
cd /sys/kernel/debug/tracing && insmod /lib/modules/zorva/zorva.ko || exit
echo "$1" >current_tracer && echo 0 >tracing_max_latency || exit
insmod /lib/modules/zorva/zorva_bench.ko only_longest=1 || exit
echo "bench: longest_$1 \$(cat tracing_max_latency) 0"
END
	chmod +x "$out/scenario-$1"
	measure "$1" "$out/scenario-$1"
	awk -v what="$2" -v icount="${BENCH_ICOUNT:-0}" '/^longest_/ {
		printf "bench: %s off for %d instructions at most (%d us)\n",
			what, $2 * 1000 / 2 ^ icount, $2
	}' "$out/$1.rows"
}
if [ "${1-}" = --latency ]; then
	longest irqsoff interrupts
	longest preemptoff preemption
	exit
fi

measure counts "$out/scenario"
# The kernel's own debugging of its heap, for comparison.
measure debugging "$out/scenario-debug" --append slub_debug=FZU

# What the module takes of the board's memory: its code, of which .text is what
# is meant to run, its constants and its data; then the same for each source.
sizes()
{
	local built=$ZORVA_BUILD/target/plat

	"${CROSS_COMPILE}size" -A "$built/linux/zorva/zorva.ko" \
		"$built"/linux/zorva/z{k,orva_*}.o "$built"/common/*.o |
		awk '
		/:$/ {
			source = $1
			sub(/.*\//, "", source)
			sub(/\..*/, "", source)
			source = source == "zorva" ? "" : "_of_" source
			if (source != "_of_zorva_cxx")
				sources[++count] = source
		}
		$1 == ".text" {
			size["text" source] = $2
		}
		$1 ~ /^\.(text|fixup|init\.text|exit\.text)/ {
			size["code" source] += $2
		}
		$1 ~ /^\.rodata/ {
			size["constants" source] += $2
		}
		$1 ~ /^\.s?data/ {
			size["data" source] += $2
		}
		$1 ~ /^\.s?bss/ {
			size["bss" source] += $2
		}
		END {
			split("text code constants data bss", kinds)
			for (i = 1; i <= count; i++)
				for (j = 1; j <= 5; j++)
					print "size_" kinds[j] sources[i],
						size[kinds[j] sources[i]] + 0, 0
		}'
}
sizes >>"$out/counts.rows"

awk -v limits="$here/limits" -v debugging="$out/debugging.rows" \
	-v json="$out/bench.json" '
function cell(value)
{
	return value == "" ? "-" : value
}
function word(value)
{
	return value == "" ? "null" : value
}
BEGIN {
	while ((getline line < limits) > 0)
		if (line !~ /^#/ && split(line, f, " ") == 2)
			limit[f[1]] = f[2]
	while ((getline line < debugging) > 0)
		if (split(line, f, " ") == 3 && f[3] > 0)
			debug[f[1]] = f[3]
	printf "%-28s %10s %10s %10s %10s\n", "instructions, bytes", "zorva",
		"kernel", "debugging", "limit"
	print "[" > json
}
{
	ours = $2 + 0
	bare = $3 > 0 ? $3 : ""
	over = ($1 in limit) && (ours > limit[$1] + 0)
	missed += over
	got[$1] = 1
	if ($1 !~ /^size_.*_of_/)
		printf "%-28s %10d %10s %10s %10s%s\n", $1, ours, cell(bare),
		cell(debug[$1]), cell(limit[$1]), over ? "  MISSED" : ""
	printf "%s  {\"name\": \"%s\", \"zorva\": %d, \"kernel\": %s, " \
		"\"debugging\": %s, \"limit\": %s}", (NR > 1 ? ",\n" : ""),
		$1, ours, word(bare), word(debug[$1]), word(limit[$1]) > json
}
END {
	print "\n]" > json
	for (name in limit)
		if (limit[name] != "" && !(name in got)) {
			print name ": was not measured"
			++missed
		}
	exit missed > 0
}' "$out/counts.rows" >"$out/table" && status=0 || status=$?
cat "$out/table"

# All calls, and what the kernel's own takes for the same job.
awk '$1 !~ /^(report_|irqs_off_|take_waits_|size_|counts_per_million$|loop$)/ {
	gsub("_", " ", $1)
	print "\"" $1 "\"", $2, $3
}' \
	"$out/counts.rows" >"$out/chart.rows"
gnuplot -e "out='$out/bench.svg'; rows='$out/chart.rows'" "$here/chart.gp"
say "$out/bench.json, $out/bench.svg"

if [ "$status" -ne 0 ]; then
	say "a limit is missed"
elif [ "${1-}" = --update ]; then
	# gnuplot leaves blanks, and the last line open.
	sed 's/[[:space:]]*$//' "$out/bench.svg" | awk 1 \
		>"$ZORVA_ROOT/docs/performance.svg"
	cp "$out/bench.json" "$ZORVA_ROOT/docs/performance.json"
	"$here/tables.sh" --update
	# Where instructions go is counted by hand.
	"$here/tables.sh" --check || status=$?
fi
exit "$status"
