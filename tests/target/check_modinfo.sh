#!/bin/bash
# SPDX-License-Identifier: GPL-2.0
#
# Looks at what the module says of itself, in the form that the kernel's suites
# have. Runs on the host.
set -euo pipefail

here=$(cd "$(dirname "$0")" && pwd)
module=${1:-${ZORVA_BUILD:-$here/../../build}/target/plat/linux/zorva/zorva.ko}
info=$("${CROSS_COMPILE-mips-linux-gnu-}objcopy" -O binary \
	--only-section=.modinfo "$module" /dev/stdout | tr '\0' '\n')
number=0
result=ok

# check NAME KEYS EXPECTED: a result, for the lines that have one of the keys
check()
{
	local good=ok found

	found=$(grep -E "^($2)=" <<<"$info" || true)
	if [ "$found" != "$3" ]; then
		printf '    # %s\n' "$found"
		good='not ok'
		result='not ok'
	fi
	number=$((number + 1))
	echo "    $good $number - $1"
}

echo "    # Subtest: check_modinfo"
echo "    1..4"
check it_has_its_name name name=zorva
check it_is_licensed_for_all_exports license license=GPL
check it_says_what_it_is description 'description=ZORVA Module'
check it_takes_no_parameters 'parm|parmtype' ''
echo "$result 1 - check_modinfo"
[ "$result" = ok ]
