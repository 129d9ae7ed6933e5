#!/bin/sh
# SPDX-License-Identifier: GPL-2.0
#
# The test scenario of the board: loads zorva, runs what is planned, and
# unloads everything. Results are lines of the console for report.sh; the exit
# status says whether all of it could be run.

# shellcheck source=tests/target/plan.sh
. /opt/tests/plan.sh

modules=/lib/modules/zorva
counter=/sys/kernel/debug/mips/unaligned_instructions
complete=0
unloaded=0
number=0
all_ok=ok

# check STATUS NAME: a result, in the form that the kernel's suites have
check()
{
	number=$((number + 1))
	if [ "$1" -eq 0 ]; then
		echo "    ok $number - $2"
	else
		echo "    not ok $number - $2"
		all_ok='not ok'
	fi
}

# here ARCH: whether this is the architecture, or none is named
here()
{
	[ -z "$1" ] || [ "$1" = "$(uname -m)" ]
}

# names KIND: what is planned of a kind, in order
names()
{
	echo "$plan" | while read -r kind name _ only; do
		[ "$kind" != "$1" ] || ! here "$only" || echo "$name"
	done
}

load()
{
	insmod "$modules/$1.ko" || {
		echo "    # $1 cannot be loaded"
		complete=1
	}
}

unload()
{
	rmmod "$1" || {
		echo "    # $1 cannot be unloaded"
		unloaded=1
	}
}

# A program ends with 1 when a test failed, which is no concern of this script.
run()
{
	"/opt/tests/$1"
	[ $? -le 1 ] || {
		echo "    # $1 did not come to its end"
		complete=1
	}
}

# Stacks in the log are then those that zorva dumps.
echo 0 >/sys/kernel/debug/failslab/verbose
unaligned=0
[ ! -f "$counter" ] || unaligned=$(cat "$counter")

load zorva
load zorva_test_support
load zorva_lab
while read -r kind name _ only; do
	here "$only" || continue
	case $kind in
	suite) load "zorva_${name}_test" ;;
	program) run "$name" ;;
	esac
done <<END
$plan
END

unload zorva_lab
for name in $(names suite); do
	unload "zorva_${name}_test"
done
unload zorva_test_support
for name in $(names last); do
	run "$name"
done

echo "    # Subtest: scenario"
echo "    1..3"
check "$complete" every_suite_and_program_ran
check "$unloaded" every_module_was_unloaded
# The suite msgq_align makes one, to see that they are counted. Where they are
# not, the processor makes them itself.
[ ! -f "$counter" ] || [ "$(cat "$counter")" -eq $((unaligned + 1)) ]
check $? no_other_access_was_unaligned
echo "$all_ok 1 - scenario"

exit "$complete"
