#!/bin/bash
# SPDX-License-Identifier: GPL-2.0
#
# Looks at the code of the counters' four changes: each has to be one loop of
# load linked and store conditional, without a barrier. Says so in the form
# that the kernel's suites have. Runs on the host.
set -euo pipefail

here=$(cd "$(dirname "$0")" && pwd)
module=${1:-$here/../../build/target/plat/linux/zorva/zorva.ko}

"${CROSS_COMPILE:-mips-linux-gnu-}objdump" -d --no-show-raw-insn "$module" |
	awk '
BEGIN {
	print "    # Subtest: check_atomics"
	print "    1..4"
	count = split("inc add_return sub_return dec_return", name, " ")
	result = "ok"
}

/^[0-9a-f]+ <.*>:$/ {
	function_name = $2
	gsub(/[<>:]/, "", function_name)
	next
}

$2 == "ll" {
	loads[function_name]++
	start[function_name] = $1
}

$2 == "sc" {
	stores[function_name]++
}

$2 ~ /^sync/ {
	barriers[function_name]++
}

# Back to the load, once the store has failed.
$2 ~ /^b/ && stores[function_name] {
	target = $3
	sub(/.*,/, "", target)
	if (target ":" == start[function_name])
		loops[function_name]++
}

END {
	for (i = 1; i <= count; i++) {
		each = "zorva_atomic_" name[i]
		good = loads[each] == 1 && stores[each] == 1 &&
			loops[each] == 1 && !barriers[each]
		if (!good) {
			result = "not ok"
			printf "    # %s: %d load linked, %d store conditional, %d branch back, %d sync\n",
				each, loads[each], stores[each],
				loops[each], barriers[each]
		}
		printf "    %s %d - %s_is_one_loop_without_a_barrier\n",
			good ? "ok" : "not ok", i, each
	}
	print result " 1 - check_atomics"
	exit result != "ok"
}'
