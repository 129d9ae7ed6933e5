#!/bin/bash
# SPDX-License-Identifier: GPL-2.0
#
# What watches many switches, and what is left of a dead one: the figures, the
# rules and the dashboard; what the figures cost on the board; and then the
# commands of docs/fleet.md and docs/post-mortem.md, typed as they stand there,
# on two boards with a Prometheus.
set -euo pipefail

# shellcheck source=target/lib.sh
. "$(dirname "$0")/../../target/lib.sh"

usage()
{
	cat <<END
usage: run.sh [COUNTS]

  COUNTS  a file for "PASSED FAILED", the numbers of checks
END
}

case ${1-} in
-*)
	usage
	[ "$1" = -h ] || [ "$1" = --help ] || exit 2
	exit
	;;
esac
counts=${1:+$(realpath -m "$1")}
here=$ZORVA_ROOT/tests/fleet
fleet=$ZORVA_BUILD/fleet
passed=0
failed=0

# zorva metrics may cost so much of what a cat of its reports does, in percent. A
# cat looks at nothing of what it reads.
most_cost=120

check()
{
	local text=$1
	shift

	if "$@"; then
		say "ok: $text"
		passed=$((passed + 1))
	else
		say "FAILED: $text"
		failed=$((failed + 1))
	fi
}

check_cost()
{
	local what reading metrics lines=0

	"$ZORVA_ROOT/target/rootfs/mkroot.sh" "$fleet/cost.cpio.gz" \
		"$ZORVA_BUILD"/target/plat/linux/zorva/zorva.ko \
		"$ZORVA_BUILD"/target/examples/fw_*.ko \
		"$ZORVA_BUILD/tools/board/zorva=/usr/bin/zorva" \
		"$here/cost.sh=/etc/scenario" || return 1
	"$ZORVA_ROOT/target/boot.sh" --kernel "$fleet/kernel/vmlinux" \
		--initrd "$fleet/cost.cpio.gz" --icount 4 --timeout 600 \
		--log "$ZORVA_LOGS/cost-console.log" || return 1
	while IFS=: read -r what reading; do
		metrics=${reading#*metrics }
		reading=${reading#*reading }
		reading=${reading%%,*}
		say "    $what: $reading thousand instructions to read," \
			"$metrics for the figures: $((metrics * 100 / reading)) %"
		lines=$((lines + 1))
		[ $((metrics * 100)) -le $((reading * most_cost)) ] || return 1
	done < <(sed -n 's/^cost: //p' "$ZORVA_LOGS/cost-console.log")
	[ "$lines" -eq 2 ]
}

check_page()
{
	"$ZORVA_ROOT/tests/kit/page.py" "$ZORVA_ROOT/docs/$1.md" "$ZORVA_ROOT"
}

trap '"$ZORVA_ROOT/target/fleet.sh" stop' EXIT
"$ZORVA_ROOT/target/fleet.sh" start
check "the figures, the rules and the dashboard" \
	/usr/bin/python3 -B "$here/metrics.py" "$ZORVA_BUILD/tools/zorva" \
	"$ZORVA_ROOT/tools/zorva/samples" "$ZORVA_ROOT/tools/prometheus"
check "what the figures cost on the board" check_cost
check "what the dashboard asks for" "$here/dashboard.py" 127.0.0.1:9090 \
	"$ZORVA_ROOT/tools/prometheus/dashboard.json"
check "docs/fleet.md" check_page fleet
check "docs/post-mortem.md" check_page post-mortem

echo "fleet: $passed passed, $failed failed"
[ -z "$counts" ] || echo "$passed $failed" >"$counts"
[ "$failed" -eq 0 ]
