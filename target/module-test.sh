#!/bin/bash
# SPDX-License-Identifier: GPL-2.0
#
# Tells from the console's log of a module test what its modules did: a line
# for each test, and one for each thing that is left.
set -euo pipefail
export LC_ALL=C

# shellcheck source=target/lib.sh
. "$(dirname "$0")/lib.sh"

usage()
{
	cat <<END
usage: module-test.sh LOG STATUS SAID MODULE...

  LOG     the console's log of target/rootfs/module-test
  STATUS  how target/boot.sh ended
  SAID    the file with what it said
  MODULE  the modules that were tested, as files
END
}

case ${1-} in
-h | --help)
	usage
	exit
	;;
esac
if [ $# -lt 4 ]; then
	usage >&2
	exit 2
fi
log=$1
board_status=$2
said=$3
shift 3
[ -f "$log" ] || {
	cat "$said" >&2
	die "the board did not start: $said"
}

# The sources were copied before they were compiled; nobody knows the copies.
name_originals()
{
	local script=() copy dir

	while read -r copy dir; do
		script+=(-e "s|$copy/|$dir/|g")
	done <"$ZORVA_BUILD/firmware/originals"
	sed "${script[@]}" "$1"
}

# Who made a block says the name of a source file, of which a report has 14
# characters: the module that has the text is the one that asked.
sources()
{
	local module name

	# A list is never empty, or the log would pass for it.
	echo "- -"
	for module in "$@"; do
		name=${module##*/}
		strings -n 3 "$module" | sed -n -E \
			"s/^.*\b([A-Za-z0-9_.-]+\.(c|cc|cpp|h))\$/${name%.ko} \1/p"
	done | sort -u
}

status=0
awk -v board_status="$board_status" -v names="$(printf '%s ' "$@")" '
function ok(text)
{
	printf "ok      %s\n", text
	passed++
}

function not_ok(text)
{
	printf "not ok  %s\n", text
	failed++
}

function indent(text)
{
	gsub(/\n +/, "\n", text)
	sub(/^ +/, "", text)
	gsub(/\n/, "\n            ", text)
	sub(/ +$/, "", text)
	if (text != "")
		printf "            %s", text
}

# What is left of a kind, by what names it.
function left(text)
{
	not_ok(text)
	leftovers++
}

function remember(line)
{
	if (++lines_said <= 40)
		what_said = what_said line "\n"
}

function forget()
{
	what_said = ""
	lines_said = 0
}

# The module of a source file; the tested ones, where none has it.
function owner(file)
{
	return file in module_of ? module_of[file] : everybody
}

BEGIN {
	count = split(names, path, " ")
	for (i = 1; i <= count; i++) {
		sub(/.*\//, "", path[i])
		sub(/\.ko$/, "", path[i])
		gsub(/-/, "_", path[i])
		if (path[i] !~ /_test$/)
			everybody = everybody (everybody == "" ? "" : ", ") path[i]
	}
	if (everybody == "")
		everybody = path[1]
	phase = ""
}

# The table of source files comes first.
NR == FNR {
	file = substr($2, 1, 14)
	if (!(file in module_of))
		module_of[file] = $1
	next
}

{
	line = $0
	sub(/\r$/, "", line)
	sub(/^\[ *[0-9]+\.[0-9]+\] /, "", line)
}

line ~ /^module-test: / {
	split(line, word, " ")
	if (word[2] == "load" || word[2] == "unload") {
		action = word[2]
		module = word[3]
		forget()
	} else if (word[2] == "status") {
		if (word[3] != 0) {
			not_ok(module ": cannot be " action "ed")
			indent(what_said)
		} else if (moment == "before") {
			ok(module ": " action "s")
		}
		action = ""
		forget()
	} else if (word[2] == "reports") {
		moment = word[3]
	} else if (word[2] == "report") {
		report = word[3]
	} else if (word[2] == "end") {
		report = ""
	} else if (word[2] == "done") {
		done = 1
	}
	next
}

# --- The suites; kernels after 5.10 have no dash before the name
line ~ /^    # Subtest: / {
	suite = substr(line, 16)
	begun[suite] = 1
	forget()
	next
}

line ~ /^    1\.\.[0-9]+$/ {
	planned[suite] = substr(line, 8)
	next
}

line ~ /^    (not )?ok [0-9]+ / {
	name = line
	sub(/^ *(not )?ok [0-9]+ (- )?/, "", name)
	results[suite]++
	if (line ~ /# SKIP/) {
		printf "skip    %s: %s\n", suite, name
		skipped++
	} else if (line ~ /^    ok/) {
		ok(suite ": " name)
	} else {
		not_ok(suite ": " name)
		indent(what_said)
	}
	tests++
	forget()
	next
}

line ~ /^(not )?ok [0-9]+ / {
	name = line
	sub(/^(not )?ok [0-9]+ (- )?/, "", name)
	ended[name] = 1
	next
}

# --- What the kernel and zorva complain of
line ~ /^(WARNING: |Kernel panic|(watchdog: )?BUG[: ]|INFO: (task|rcu)|CPU [0-9]+ Unable)/ \
|| line ~ /\[#[0-9]+\]:$|Kernel bug detected|Modules linked in: .*\(E\)/ \
|| line ~ /: (Memory corruption: |Memory overflow detected|Double free |Free invalid ptr|Memory header corrupt)/ {
	if (complaints++ == 0)
		complaint = line
	where[complaints] = action == "" ? "" : module ", " action ": "
	texts[complaints] = line
	remember(line)
	next
}

# --- The reports
report == "mem" && $1 ~ /^[A-Z0-9]+$/ && NF == 6 && $2 ~ /^[0-9]+$/ {
	usage_of[moment, $1] = $2
	blocks_of[moment, $1] = $6
	sub(/^\+/, "", blocks_of[moment, $1])
	if (moment == "after")
		component[$1] = 1
	next
}

report == "mem.detail" && $1 == "Component" {
	owned_by = $3
	next
}

report == "mem.detail" && line ~ /^<memory corruption/ {
	if (moment == "after") {
		place = line
		sub(/.*\) \(/, "", place)
		sub(/\)>.*/, "", place)
		torn[++torn_blocks] = place
	}
	next
}

report == "mem.detail" && line ~ /^  \[[0-9]+\] [0-9a-f]+ - [0-9]+ bytes \(/ {
	place = line
	sub(/.*\(/, "", place)
	sub(/\).*/, "", place)
	# A block that was freed may have made room for another one like it.
	key = place " " $3 " " $2 " " $1
	if (moment == "before") {
		had[key] = 1
	} else if (!(key in had)) {
		what = place SUBSEP owned_by
		if (!(what in count_at))
			place_order[++places] = what
		count_at[what]++
		bytes_at[what] += line_size(line)
	}
	next
}

function line_size(text)
{
	sub(/.* - /, "", text)
	sub(/ bytes.*/, "", text)
	return text + 0
}

report == "thread" || report ~ /\.detail$/ || report == "msgq" {
	if ($1 == "Component" && $2 == ":")
		thread_owner = $3
	if ($1 == "Index")
		object_index = $3
	if ($1 == "Name" && $2 == ":") {
		object = line
		sub(/^[^:]*: /, "", object)
	}
	if (report == "thread" && $1 == "PID")
		found("thread", object, thread_owner ", PID " $3)
	if (report == "mutex.detail" && $1 == "Component")
		found("mutex", object, $3 ", index " object_index)
	if (report == "sem.detail" && $1 == "Component")
		found("semaphore", object, $3 ", index " object_index)
	if (report == "msgq" && line ~ /^Queue Name/) {
		object = line
		sub(/^[^:]*: /, "", object)
	}
	if (report == "msgq" && $1 == "Component" && $2 == "ID") {
		gsub(/[()]/, "", $5)
		found("queue", object, $5)
	}
	next
}

function found(kind, name, detail,    key)
{
	key = kind " " name " (" detail ")"
	if (moment == "before")
		had[key] = 1
	else if (!(key in had))
		objects[++object_count] = "the " key
}

(report == "timer" || report == "hrt") && NF >= 6 && $2 ~ /^[0-9]+$/ {
	key = report " " $2
	if (moment == "before")
		had[key " " $5] = 1
	else if ($5 == 1 && !((key " 1") in had))
		objects[++object_count] = (report == "hrt" ? \
			"a running high-resolution timer" : "a running timer") \
			" (" $1 ", ID " $2 "), started at " $6 " " $7
	next
}

{
	remember(line)
}

END {
	for (name in begun) {
		if (planned[name] + 0 != results[name] + 0 || !(name in ended))
			not_ok(name ": did not come to its end (" \
				results[name] + 0 " of " planned[name] + 0 ")")
	}
	if (done) {
		explained_bytes = 0
		for (i = 1; i <= object_count; i++)
			left(everybody " left " objects[i])
		for (i = 1; i <= torn_blocks; i++) {
			split(torn[i], part, ", ")
			left(owner(part[1]) " tore a block: " torn[i])
		}
		for (i = 1; i <= places; i++) {
			split(place_order[i], part, SUBSEP)
			split(part[1], at, ", ")
			listed[part[2]] += count_at[place_order[i]]
			n = count_at[place_order[i]]
			what = n (n == 1 ? " block, " : " blocks, ") \
				bytes_at[place_order[i]] " bytes: " part[1]
			# Timers stay with zorva for good, their place as well.
			if (at[1] ~ /^(zorva_timer\.|sys_sll\.)/) {
				if (at[1] ~ /^zorva_timer/)
					timers += n
			} else if (at[1] in module_of) {
				left(module_of[at[1]] " left " what)
			} else {
				left(everybody " left " what " (" part[2] ")")
			}
		}
		for (name in component) {
			more = blocks_of["after", name] - blocks_of["before", name]
			if (more > listed[name] + 0)
				left(everybody " left " more - listed[name] \
					" blocks that are not listed, in the" \
					" account of " name)
		}
		if (!leftovers)
			ok("nothing is left")
		if (timers)
			printf "        (%d timer%s, which zorva keeps for good)\n", \
				timers, timers == 1 ? " stays" : "s stay"
	}
	if (complaints) {
		not_ok("complaints of the kernel or of zorva: " complaints)
		for (i = 1; i <= complaints && i <= 5; i++)
			printf "        %s%s\n", where[i], texts[i]
	}
	if (!done) {
		if (action != "")
			not_ok(module ": does not come back from its " action)
		else
			not_ok("the modules did not come to their end")
	} else if (board_status != 0 && !complaints) {
		not_ok("the board ended with status " board_status)
	}
	if (!tests)
		print "        (there is no KUnit suite among them)"
	printf "%s: %d passed, %d failed%s\n", everybody, passed, failed, \
		skipped ? ", " skipped " skipped" : ""
	exit failed > 0
}' <(sources "$@") <(name_originals "$log") || status=$?

if [ "$status" -ne 0 ]; then
	grep '^boot.sh: ' "$said" >&2 || say "module-test: failed; console: $log"
else
	say "  console: $log"
fi
exit "$status"
