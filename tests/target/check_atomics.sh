#!/bin/bash
# SPDX-License-Identifier: GPL-2.0
#
# Looks at the code of the counters: each of the four changes has to be one loop
# of load linked and store conditional, a set or a read one plain access, and all
# without a barrier. Says so in the form that the kernel's suites have. Runs on
# the host.
set -euo pipefail

here=$(cd "$(dirname "$0")" && pwd)
module=${1:-${ZORVA_BUILD:-$here/../../build}/target/plat/linux/zorva/zorva.ko}

"${CROSS_COMPILE-mips-linux-gnu-}objdump" -d --no-show-raw-insn "$module" |
	awk '
BEGIN {
	print "    # Subtest: check_atomics"
	print "    1..6"
	result = "ok"
}

/^[0-9a-f]+ <.*>:$/ {
	function_name = $2
	gsub(/[<>:]/, "", function_name)
	next
}

$2 == "ll" {
	start[function_name] = $1
}

$2 == "sc" {
	stores[function_name]++
}

$2 ~ /^sync/ {
	barriers[function_name]++
}

# Memory, but for the stack.
$NF ~ /\(.*\)$/ && $NF !~ /\(sp\)$/ {
	accesses[function_name] = accesses[function_name] $2 " "
}

# Back to the load, once the store has failed.
$2 ~ /^b/ && stores[function_name] {
	target = $3
	sub(/.*,/, "", target)
	if (target ":" == start[function_name])
		loops[function_name]++
}

# check(NAME, ACCESSES, LOOPS, WHAT): a result, for the one function
function check(name, good_accesses, good_loops, what,    each, good)
{
	each = "zorva_atomic_" name
	good = accesses[each] == good_accesses && loops[each] + 0 == good_loops &&
		!barriers[each]
	if (!good) {
		result = "not ok"
		printf "    # %s: accesses %s, %d branch back, %d sync\n",
			each, accesses[each], loops[each], barriers[each]
	}
	printf "    %s %d - %s_is_one_%s_without_a_barrier\n",
		good ? "ok" : "not ok", ++number, each, what
}

END {
	check("inc", "ll sc ", 1, "loop")
	check("add_return", "ll sc ", 1, "loop")
	check("sub_return", "ll sc ", 1, "loop")
	check("dec_return", "ll sc ", 1, "loop")
	check("set", "sw ", 0, "store")
	check("read", "lw ", 0, "load")
	print result " 1 - check_atomics"
	exit result != "ok"
}'
