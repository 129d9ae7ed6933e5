#!/bin/sh
# SPDX-License-Identifier: GPL-2.0
#
# check_object.sh NM OBJDUMP OBJECT SYMBOLS [CONSTRUCTORS]
#
# Fails when an object made of C++ needs a symbol that the list does not allow,
# calls the kernel where that is too far away for a call, or holds a section
# that only the run-time of C++ would know what to do with.
# Without a list ('') only symbols of that run-time are refused. A kernel that
# runs constructors itself, which its sanitizers need, says "y".
set -eu

nm=$1
objdump=$2
object=$3
symbols=$4
constructors=${5-}
bad=0

if [ -n "$symbols" ]; then
	patterns=$(sed -e 's/#.*//' -e '/^[[:space:]]*$/d' "$symbols")
fi

allowed() {
	for pattern in $patterns; do
		# shellcheck disable=SC2254 # the list holds patterns
		case $1 in
		$pattern) return 0 ;;
		esac
	done
	return 1
}

refuse() {
	echo "$object: $*" >&2
	bad=1
}

# What in the source needs a symbol that no kernel has.
run_time() {
	case $1 in
	_Zn[wa]* | _Zd[la]*)
		refuse "needs operator new or delete ($1)"
		;;
	__cxa_guard_*)
		refuse "has a local static that is set up at run time ($1)"
		;;
	__cxa_throw* | __cxa_*catch | __gxx_personality* | _Unwind_*)
		refuse "needs exceptions ($1)"
		;;
	__dynamic_cast | _ZTVN10__cxxabiv1*)
		refuse "needs the types at run time ($1)"
		;;
	_ZSt* | _ZNSt* | _ZNKSt*)
		refuse "needs the C++ library ($1)"
		;;
	__cxa_* | __dso_handle | __tls_get_addr | __emutls_*)
		refuse "needs the run-time of C++ ($1)"
		;;
	__div[dt]i3 | __udiv[dt]i3 | __mod[dt]i3 | __umod[dt]i3 | __*divmod[dt]i4)
		refuse "divides numbers of 64 bits ($1): have it done in C"
		;;
	__*[sd]f | __*[sd]f2 | __*[sd]f3 | __fix*[sd]i | __extendsfdf2)
		refuse "uses floating point ($1)"
		;;
	esac
}

set -f
for symbol in $($nm -u "$object" | awk '{ print $NF }'); do
	if [ -z "$symbols" ]; then
		run_time "$symbol"
	elif ! allowed "$symbol"; then
		refuse "needs '$symbol', which is not in $symbols"
	fi
done

# A module may lie farther from the kernel than a call of MIPS reaches.
if [ -n "$symbols" ]; then
	near=" $($objdump -r "$object" |
		awk '$2 == "R_MIPS_26" { printf "%s ", $3 }')"
	for symbol in $($nm -u "$object" | awk '{ print $NF }'); do
		case $symbol in
		zk_*) continue ;;
		esac
		case $near in
		*" $symbol "*) refuse "calls '$symbol' as if it were near" ;;
		esac
	done
fi

for section in $($objdump -h "$object" | awk '$1 ~ /^[0-9]+$/ { print $2 }'); do
	case $section in
	.init_array* | .ctors* | .fini_array* | .dtors*)
		if [ "$constructors" != y ]; then
			refuse "has the section $section: an object is set" \
				"up at run time, which nobody does"
		fi
		;;
	.preinit_array* | .eh_frame* | \
		.gcc_except_table* | .tbss* | .tdata*)
		refuse "has the section $section"
		;;
	esac
done

exit $bad
