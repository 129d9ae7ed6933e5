#!/bin/bash
# SPDX-License-Identifier: GPL-2.0
#
# What a look of "zorva top" costs the board, and what reading the ten reports
# does; by instructions, so the figures are the same on each machine.
set -euo pipefail

# shellcheck source=target/lib.sh
. "$(dirname "$0")/../../target/lib.sh"

usage()
{
	cat <<END
usage: bench_board.sh

Environment: as for board.sh. Needs what "make tools" builds.
END
}

case ${1-} in
'') ;;
-h | --help)
	usage
	exit
	;;
*)
	usage >&2
	exit 2
	;;
esac

[ -x "$ZORVA_BUILD/tools/board/zorva" ] || die "run make tools"
scenario=$ZORVA_BUILD/bench-top.sh
cat >"$scenario" <<'END'
set -eu
looks=200
modprobe zorva
for module in board sys port vlan fdb rx link ip; do
	modprobe fw_$module
done
echo 0 >/sys/module/fw_fdb/parameters/age
sleep 2

# now: hundredths of a second, of 625,000 instructions each
now()
{
	read -r up _ </proc/uptime
	echo "${up%.*}${up#*.}"
}

# took COMMAND...
took()
{
	from=$(now)
	"$@" >/dev/null
	echo $(($(now) - from))
}

look()
{
	zorva top --batch --interval 0 --frames "$@"
}

# compare: sets top and reports, in thousands of instructions
compare()
{
	files=
	for i in $(seq "$looks"); do
		files="$files /proc/zorva/*"
	done
	start=$(took look 1)
	top=$((($(took look $((looks + 1))) - start) * 625 / looks))
	# shellcheck disable=SC2086 # several words, and patterns
	reports=$(($(took cat $files) * 625 / looks))
	blocks=$(grep -c bytes /proc/zorva/zorva.mem.detail)
	echo "$blocks blocks: a look of zorva top takes $top thousand" \
		"instructions, reading the ten reports $reports thousand"
}

compare
# The address table learns a thousand, eight at a time.
echo "10 office" >/sys/module/fw_vlan/parameters/add
for i in $(seq 125); do
	echo "00:00:5e:00:$(printf %02x "$i"):01 1 10 8" \
		>/sys/module/fw_rx/parameters/frame
	usleep 20000
done
compare
[ "$blocks" -gt 1000 ]
[ "$top" -gt 0 ]
[ "$top" -lt "$reports" ]
END
SCENARIO=$scenario BOARD_ARGS="--icount 4" "$ZORVA_ROOT/target/board.sh" run
