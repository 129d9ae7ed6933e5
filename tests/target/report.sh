#!/bin/bash
# SPDX-License-Identifier: GPL-2.0
#
# Reads the results out of the console's log, compares them with what was
# planned, and looks for complaints of the kernel that no test had announced.
# Into the file go "PASSED FAILED", and a line for each test that was skipped.
set -euo pipefail
export LC_ALL=C

here=$(cd "$(dirname "$0")" && pwd)
# shellcheck source=target/lib.sh
. "$here/../../target/lib.sh"
# shellcheck source=tests/target/plan.sh
. "$here/plan.sh"

usage()
{
	echo "usage: report.sh CONSOLE-LOG COUNTS-FILE"
}

case ${1-} in
-h | --help)
	usage
	exit
	;;
esac
if [ $# -ne 2 ] || [ ! -f "$1" ]; then
	usage >&2
	exit 2
fi
log=$1
counts=$2

kernel_facts "${KERNEL_BUILD-}"
planned=$(
	while read -r kind name count only; do
		if [ -n "$only" ] && [ "$only" != "$arch" ]; then
			say "skipped: $name is for $only"
			continue
		fi
		case $kind in
		suite) echo "zorva_$name $count" ;;
		program | last | host) echo "$name $count" ;;
		esac
	done <<<"$plan"
	echo "scenario 3"
)

# Their results count, not their status.
host_checks()
{
	while read -r kind name _ only; do
		[ "$kind" = host ] || continue
		if [ -z "$only" ] || [ "$only" = "$arch" ]; then
			CROSS_COMPILE=$cross "$here/$name.sh" || true
		fi
	done <<<"$plan"
}

# A result belongs to the suite that was announced last. What a failed test
# said stands between the result before it and its own.
status=0
awk -v plan="$planned" -v counts="$counts" '
function fail_suite(suite, why)
{
	failed[suite]++
	failures = failures "\nFAILED " suite ": " why "\n"
}

function remember(line)
{
	# Dumped stacks would hide what the test itself said.
	if (line ~ /^(Stack : |        [0-9a-f]+ [0-9a-f]+ |        \.\.\.|\[<[0-9a-f]+>\]|$)/)
		return
	if (said_lines < 60)
		said = said "  " line "\n"
	else if (said_lines == 60)
		said = said "  ...\n"
	said_lines++
}

function forget()
{
	said = ""
	said_lines = 0
}

# A complaint, with some lines of what follows it.
function complain(line)
{
	complaints++
	complaint_text = complaint_text "  line " NR ": " line "\n"
}

BEGIN {
	rows = split(plan, row, "\n")
	for (i = 1; i <= rows; i++) {
		split(row[i], field, " ")
		order[i] = field[1]
		planned[field[1]] = field[2]
	}
	# What warns there, for kernels that name no files (DEBUG_BUGVERBOSE).
	file_of["proc_register"] = "fs/proc/generic.c"
	file_of["remove_proc_entry"] = "fs/proc/generic.c"
	file_of["__alloc_pages"] = "mm/page_alloc.c"
	file_of["__alloc_pages_noprof"] = "mm/page_alloc.c"
	file_of["__alloc_frozen_pages_noprof"] = "mm/page_alloc.c"
}

{
	line = $0
	sub(/\r$/, "", line)
	sub(/^\[ *[0-9]+\.[0-9]+\] /, "", line)
}

line ~ /^    # Subtest: / {
	suite = substr(line, 16)
	if (!(suite in planned))
		fail_suite(suite, "runs, but is not planned")
	if (suite in begun)
		fail_suite(suite, "runs a second time")
	begun[suite] = 1
	forget()
	next
}

# Since 6.0 the suites print no sign between a number and a name.
line ~ /^    (not )?ok [0-9]+ / {
	name = line
	sub(/^ *(not )?ok [0-9]+ (- )?/, "", name)
	results[suite]++
	if (line ~ /^    ok/ && name ~ / # SKIP/) {
		skipped[suite]++
		skips = skips "skipped: " suite ": " name "\n"
	} else if (line ~ /^    ok/) {
		passed[suite]++
	} else {
		failed[suite]++
		failures = failures "\nFAILED " suite ": " name "\n" said
	}
	forget()
	next
}

line ~ /^(not )?ok [0-9]+ / {
	name = line
	sub(/^(not )?ok [0-9]+ (- )?/, "", name)
	ended[name] = 1
	if (line ~ /^not ok/ && !failed[name])
		fail_suite(name, "failed as a whole")
	next
}

# Tests say beforehand what they are going to provoke.
line ~ /^    # .*: expected: WARNING at / {
	place = line
	sub(/.*: expected: WARNING at /, "", place)
	announced[place]++
	next
}

# "CPU: 0 PID: 1 at FILE:LINE FUNCTION", or since 7.0 "FILE:LINE at FUNCTION";
# without the file where the kernel does not know it.
line ~ /^WARNING: (CPU: |at |[^ ]+:[0-9]+ at )/ {
	remember(line)
	place = line
	sub(/^WARNING: (CPU: .* at |at )?/, "", place)
	sub(/(:|\+0x).*/, "", place)
	if (place in file_of)
		place = file_of[place]
	if (announced[place] > 0)
		announced[place]--
	else
		complain(line)
	next
}

line ~ /^scenario: exit status / {
	exit_status = $NF
}

tolower(line) ~ /bug:|bug at|oops|kernel panic|call trace:.*bug|unaligned|unable to handle|info: task|info: rcu|list_(add|del) corruption|slab.*(corrupt|overwritten)|use-after-free|refcount_t|scheduling while atomic|sleeping function called|page allocation failure|soft lockup|segfault|warning: possible/ \
&& line !~ /^(    |# )/ && line !~ /access_was_unaligned/ {
	complain(line)
}

{
	remember(line)
}

END {
	for (i = 1; i <= rows; i++) {
		name = order[i]
		missing = planned[name] - results[name]
		if (!(name in begun))
			why = "did not run"
		else if (!(name in ended))
			why = "did not come to its end"
		else
			why = "results differ in number from the plan"
		if (missing > 0) {
			failed[name] += missing
			failures = failures sprintf("\nFAILED %s: %s: %d results, %d planned\n",
				name, why, results[name], planned[name])
			if (why ~ /end$/)
				failures = failures said
		} else if (missing < 0) {
			fail_suite(name, sprintf("%d results, %d planned",
				results[name], planned[name]))
		} else if (!(name in ended)) {
			fail_suite(name, why)
		}
	}
	for (name in failed)
		if (!(name in planned))
			order[++rows] = name

	printf "%-20s %7s %7s %7s\n", "suite", "passed", "failed", "skipped"
	for (i = 1; i <= rows; i++) {
		name = order[i]
		printf "%-20s %7d %7d %7d\n", name, passed[name], failed[name],
			skipped[name]
		all_passed += passed[name]
		all_failed += failed[name]
		all_skipped += skipped[name]
	}

	# The log itself is one more result.
	bad_log = complaints > 0 || exit_status != "0"
	printf "%-20s %7d %7d %7d\n", "console log", !bad_log, bad_log, 0
	all_passed += !bad_log
	all_failed += bad_log
	printf "%-20s %7d %7d %7d\n", "all", all_passed, all_failed, all_skipped

	printf "%s%s", skips, failures
	if (complaints > 0)
		printf "\nFAILED console log: %d complaints that no test announced\n%s",
			complaints, complaint_text
	if (exit_status != "0")
		printf "\nFAILED console log: %s\n", exit_status == "" ? \
			"the scenario did not come to its end" : \
			"the scenario ended with status " exit_status

	print all_passed + 0, all_failed + 0 >counts
	printf "%s", skips >counts
	exit all_failed > 0
}' "$log" <(host_checks) || status=$?

[ "$status" -eq 0 ] || echo "the whole log: $log"
exit "$status"
