#!/bin/bash
# SPDX-License-Identifier: GPL-2.0
#
# Two boards that are in trouble, and a Prometheus that watches them, on this
# machine alone: nothing listens but on 127.0.0.1, and nothing leaves it.
set -euo pipefail

# shellcheck source=target/lib.sh
. "$(dirname "$0")/lib.sh"

usage()
{
	cat <<END
usage: fleet.sh start | stop

  start  builds and starts them, and comes back when they answer
  stop   ends them

They end by themselves after BOARD_TIMEOUT seconds (1800). Each board leaves
what it has to say in build/fleet/NAME.
END
}

fleet=$ZORVA_BUILD/fleet
built=$ZORVA_BUILD/target
limit=${BOARD_TIMEOUT:-1800}

# The boards: name, port, faults.
boards="one 9101 leak
two 9102 leak,overrun,full-queue,deadlock"
prometheus=127.0.0.1:9090

case ${1-} in
start | stop) ;;
-h | --help)
	usage
	exit
	;;
*)
	usage >&2
	exit 2
	;;
esac

# What was started, and still runs, of one name.
running()
{
	local pid

	[ -f "$fleet/$1.pid" ] || return 1
	pid=$(cat "$fleet/$1.pid")
	# Another process may have the number by now.
	[ "$(ps -o comm= -p "$pid" 2>/dev/null)" = timeout ] || return 1
	echo "$pid"
}

# timeout ends what it runs when it is ended itself.
stop()
{
	local name pid left

	for name in prometheus one two; do
		pid=$(running "$name") || continue
		kill "$pid" 2>/dev/null || true
		left=100
		while running "$name" >/dev/null && [ "$left" -gt 0 ]; do
			left=$((left - 1))
			sleep 0.1
		done
		say "  fleet: $name has ended"
	done
}

# The kernel that these boards have needs a network device, so it is none that
# others work with.
build()
{
	local with=(--with "$ZORVA_ROOT/target/kernel/network.config")

	KERNEL_BUILD=$("$ZORVA_ROOT/target/kernel/build.sh" "${with[@]}" \
		--print-dir)
	export KERNEL_BUILD
	[ -d "$KERNEL_BUILD" ] ||
		"$ZORVA_ROOT/target/kernel/build.sh" "${with[@]}"
	build_lock
	"$ZORVA_ROOT/target/busybox/build.sh"
	"$ZORVA_ROOT/target/modules.sh" module examples fleet
	"$ZORVA_ROOT/target/tools.sh" desk board lines debugger
	mapfile -t modules < <(for dir in plat/linux/zorva examples tests/fleet; do
		modules_in_order "$built/$dir"
	done)
	mapfile -t -O ${#modules[@]} modules < <(find "$KERNEL_BUILD/" \
		\( -path '*/drivers/*' -o -path '*/net/*' -o -path '*/fs/*' \) \
		-name '*.ko')
	"$ZORVA_ROOT/target/rootfs/mkroot.sh" "$fleet/root.cpio.gz" \
		"${modules[@]}" \
		"$ZORVA_BUILD/tools/board/zorva=/usr/bin/zorva" \
		"$ZORVA_ROOT/tools/zorva/zorva-snapshot=/usr/bin/zorva-snapshot" \
		"$ZORVA_ROOT/target/rootfs/metrics=/www/cgi-bin/metrics" \
		"$ZORVA_ROOT/tests/fleet/scenario.sh=/etc/scenario"
	# The same under a name that does not depend on the cache.
	ln -sfn "$KERNEL_BUILD" "$fleet/kernel"
}

# start NAME COMMAND...: for as long as the limit, on its own
start()
{
	local name=$1
	shift

	setsid timeout "$limit" "$@" </dev/null >"$fleet/$name.log" 2>&1 8>&- 9>&- &
	echo $! >"$fleet/$name.pid"
}

start_board()
{
	local name=$1 port=$2 faults=$3

	rm -rf "${fleet:?}/$name"
	mkdir -p "$fleet/$name"
	start "$name" "$ZORVA_ROOT/target/boot.sh" \
		--kernel "$KERNEL_BUILD/vmlinux" \
		--initrd "$fleet/root.cpio.gz" --log "$fleet/$name-console.log" \
		--timeout "$limit" --net "$port" --share "$fleet/$name" \
		--gdb-any "$fleet/$name.gdb" \
		--append "panic=0 FAULTS=$faults"
}

# The rules as they are, in seconds instead of hours.
start_prometheus()
{
	local conf=$fleet/prometheus

	rm -rf "$conf"
	mkdir -p "$conf"
	cp "$ZORVA_ROOT/tools/prometheus/switches.yml" "$conf"
	sed -E 's/_(interval|timeout): 30s$/_\1: 2s/; s/: 15m$/: 4s/' \
		"$ZORVA_ROOT/tools/prometheus/prometheus.yml" \
		>"$conf/prometheus.yml"
	sed -E 's/\[55m\]/[10s]/; s/offset 1h/offset 12s/
		s/offset 2h/offset 24s/; s/for: [15]m$/for: 4s/' \
		"$ZORVA_ROOT/tools/prometheus/rules.yml" >"$conf/rules.yml"
	promtool check config "$conf/prometheus.yml" >"$conf/check.log" ||
		die "the configuration is wrong: $conf/check.log"
	start prometheus prometheus --config.file="$conf/prometheus.yml" \
		--storage.tsdb.path="$conf/data" \
		--web.listen-address="$prometheus" \
		--storage.tsdb.retention.time=1h
}

# await TEXT COMMAND...: until it answers
await()
{
	local text=$1 end=$((SECONDS + 180))
	shift

	until "$@" >/dev/null 2>&1; do
		[ "$SECONDS" -lt "$end" ] ||
			die "$text does not answer; logs: $fleet/*.log"
		sleep 0.5
	done
}

answers()
{
	curl -sf --max-time 5 "http://$1" | grep -q "$2"
}

stop
[ "$1" = start ] || exit 0
for command in prometheus promtool curl; do
	command -v "$command" >/dev/null ||
		die "no $command: run target/install-deps.sh fleet"
done
mkdir -p "$fleet"
build
while read -r name port faults; do
	start_board "$name" "$port" "$faults"
done <<<"$boards"
start_prometheus
while read -r name port faults; do
	await "board $name" answers "127.0.0.1:$port/cgi-bin/metrics" '^# EOF'
	echo "board $name: http://127.0.0.1:$port/cgi-bin/metrics"
done <<<"$boards"
await Prometheus answers "$prometheus/-/ready" Ready
echo "Prometheus: http://$prometheus/alerts"
