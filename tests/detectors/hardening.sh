#!/bin/bash
# SPDX-License-Identifier: GPL-2.0
#
# Looks at the code of the module's C part and of its C++, whether each has what
# the kernel's configuration asks for of its own objects: who calls through a
# pointer looks at the type first, lands where it may and speculates nowhere;
# returns are signed; the stack is guarded.
set -euo pipefail

# shellcheck source=target/lib.sh
. "$(dirname "$0")/../../target/lib.sh"

usage()
{
	cat <<END
usage: hardening.sh [DIRECTORY]

  DIRECTORY  where zk.o and zorva_cxx.o are; those that were built last

Environment: KERNEL_BUILD (the kernel tree that they were built for).
END
}

case ${1-} in
-*)
	usage
	[ "$1" = -h ] || [ "$1" = --help ] || exit 2
	exit
	;;
esac
[ -n "${KERNEL_BUILD-}" ] || die "KERNEL_BUILD is not set"
kernel_facts "$KERNEL_BUILD"
directory=${1:-$ZORVA_BUILD/target/plat/linux/zorva}
passed=0
failed=0

has_option()
{
	grep -q "^CONFIG_$1=y" "$KERNEL_BUILD/.config"
}

# What others may call: they are told apart from what is only called here.
shared_functions()
{
	"${cross}nm" "$1" | awk '$2 == "T" && $3 !~ /^__(cfi|pfx)_/ { print $3 }'
}

# Prints "FUNCTION INSTRUCTION", one a line. What stands before a function
# counts to it.
instructions()
{
	"${cross}objdump" -d --no-show-raw-insn "$1" | awk '
		/^[0-9a-f]+ <.*>:$/ {
			gsub(/[<>:]/, "", $2)
			if ($2 !~ /^[.$]/)
				name = $2
			next
		}
		name && $1 ~ /:$/ {
			$1 = name
			print
		}'
}

# first_is PATTERN: names the shared functions that begin with something else
first_is()
{
	awk -v pattern="$1" '
		NR == FNR { shared[$1] = 1; next }
		$1 in shared && !($1 in seen) {
			name = $1
			seen[name] = 1
			sub(/^[^ ]* /, "")
			if ($0 !~ pattern)
				print name ": " $0
		}' <(shared_functions "$object") <(instructions "$object")
}

# has_none PATTERN: names the instructions of that form
has_none()
{
	instructions "$object" | grep -E "$1" || true
}

# On x86_64 a function with a type has a name for what stands before it, of
# which those of an alias have no other.
has_types_x86_64()
{
	"${cross}nm" "$object" | awk '
		$3 ~ /^__cfi_/ { typed[substr($3, 7)] = 1; next }
		$2 == "T" && $3 !~ /^__pfx_/ { name[$1] = name[$1] " " $3 }
		$2 ~ /^[Tt]$/ { all[$1] = all[$1] " " $3 }
		END {
			for (at in name) {
				n = split(all[at], names, " ")
				for (good = i = 0; i++ < n;)
					good += names[i] in typed
				if (!good)
					print name[at]
			}
		}'
}

# On arm64 a call through a pointer comes right after the trap for another type.
has_types_arm64()
{
	instructions "$object" | awk '
		$2 == "blr" && (before[1] != $1 || before[2] != "brk")
		{ before[1] = $1; before[2] = $2 }'
}

# The type that stands before each function: "FUNCTION HASH".
types_of_x86_64()
{
	"${cross}objdump" -d --no-show-raw-insn "$1" | awk '
		/^[0-9a-f]+ <__cfi_.*>:$/ {
			name = substr($2, 8, length($2) - 9)
			next
		}
		name && $2 == "mov" {
			sub(/.*\$0x/, "")
			sub(/,.*/, "")
			print name, $0
			name = ""
		}'
}

types_of_arm64()
{
	"${cross}objdump" -d --no-show-raw-insn "$1" | awk '
		/^[0-9a-f]+ <.*>:$/ && hash {
			print substr($2, 2, length($2) - 3), hash
		}
		NF { hash = "" }
		$2 == ".word" {
			hash = $3
			sub(/^0x0*/, "", hash)
		}'
}

# What C takes the type of a function for, that C++ has, is what C++ gives it.
same_types()
{
	local dir=${object%/*}

	[ "$object" != "$dir/zk.o" ] || return 0
	awk 'NR == FNR { hash[$1] = $2; next }
		$1 in hash && ++n && hash[$1] != $2 {
			print $1 ": " $2 ", in C++ " hash[$1]
		}
		END { if (n < 50) print n " functions compared" }' \
		<("types_of_$arch" "$object") \
		<("${cross}nm" "$dir/zk.o" | sed -n \
			's/^0*\([0-9a-f]*\) W __kcfi_typeid_/\1 /p' |
			awk '{ print $2, $1 }')
}

# Who keeps the address that it returns to in memory has signed it.
signs_returns()
{
	instructions "$object" | awk '
		$2 == "paciasp" { signed[$1] = 1 }
		/ (stp|str) .*x30.*\[sp/ && !signed[$1]'
}

guards_stacks()
{
	"${cross}nm" -u "$object" | grep ' __stack_chk_fail$' >/dev/null ||
		echo "no guard"
}

# check OPTION WHAT COMMAND...: nothing may be printed, where the option is
check()
{
	local option=$1 what=$2 object found
	shift 2

	has_option "$option" || return 0
	for object in "$directory"/{zk,zorva_cxx}.o; do
		found=$("$@")
		if [ -z "$found" ]; then
			say "ok: ${object##*/}: $what"
			passed=$((passed + 1))
		else
			say "FAILED: ${object##*/}: $what"
			head -n 20 <<<"$found" >&2
			failed=$((failed + 1))
		fi
	done
}

for option in CFI CFI_CLANG; do
	check "$option" "calls through pointers look at the type" \
		"has_types_$arch"
	check "$option" "types are those that C has" same_types
done
check X86_KERNEL_IBT "functions begin with a landing place" \
	first_is '^endbr64'
check MITIGATION_RETPOLINE "no call through a pointer speculates" \
	has_none ' (call|jmp) +\*'
check MITIGATION_RETHUNK "no return speculates" has_none ' ret *$'
check ARM64_BTI_KERNEL "functions begin with a landing place" \
	first_is '^(bti c|paciasp)'
check ARM64_PTR_AUTH_KERNEL "returns are signed" signs_returns
check STACKPROTECTOR_STRONG "stacks are guarded" guards_stacks
say "hardening: $passed as the kernel has it, $failed not"
[ "$failed" -eq 0 ] && [ "$passed" -gt 0 ]
