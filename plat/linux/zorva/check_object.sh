#!/bin/sh
# SPDX-License-Identifier: GPL-2.0
#
# check_object.sh NM OBJDUMP OBJECT SYMBOLS [CONSTRUCTORS]
#
# Fails when the linked C++ needs a symbol that the list does not allow, or
# holds a section that only the run-time of C++ would know what to do with. A
# kernel that runs constructors itself, which its sanitizers need, says "y".
set -eu

nm=$1
objdump=$2
object=$3
symbols=$4
constructors=${5-}
bad=0

patterns=$(sed -e 's/#.*//' -e '/^[[:space:]]*$/d' "$symbols")

allowed() {
	for pattern in $patterns; do
		# shellcheck disable=SC2254 # the list holds patterns
		case $1 in
		$pattern) return 0 ;;
		esac
	done
	return 1
}

set -f
for symbol in $($nm -u "$object" | awk '{ print $NF }'); do
	if ! allowed "$symbol"; then
		echo "$object: needs '$symbol', which is not in $symbols" >&2
		bad=1
	fi
done

for section in $($objdump -h "$object" | awk '$1 ~ /^[0-9]+$/ { print $2 }'); do
	case $section in
	.init_array* | .ctors*)
		if [ "$constructors" != y ]; then
			echo "$object: has the section $section" >&2
			bad=1
		fi
		;;
	.fini_array* | .dtors* | .preinit_array* | .eh_frame* | \
		.gcc_except_table* | .tbss* | .tdata*)
		echo "$object: has the section $section" >&2
		bad=1
		;;
	esac
done

exit $bad
