#!/bin/bash
# SPDX-License-Identifier: GPL-2.0
#
# The tables of docs/performance.md and the one of README.md, from the numbers
# in docs/performance.json: writes them, or says whether text and numbers agree.
set -euo pipefail

here=$(cd "$(dirname "$0")" && pwd)
text=$here/../docs/performance.md
first=$here/../README.md
numbers=$here/../docs/performance.json
spread=2

usage()
{
	cat <<END
usage: tables.sh --update | --check

  --update  write the tables anew, between their markers in the text
  --check   say what differs, and what does not add up: in a table that tells
            where the instructions of a call go, the parts are its figure
            to within $spread, by which figures differ from run to run
END
}

# made_anew TEXT: the text with its tables made anew
made_anew()
{
	awk -v numbers="$numbers" -v rows="$here/rows" \
		-v limits="$here/limits" -v tables="${2-3}" '
	function cell(name, key,    value)
	{
		value = figure[name, key]
		if (value == "null")
			return ""
		while (match(value, /[0-9][0-9][0-9][0-9]($|,)/))
			value = substr(value, 1, RSTART) "," \
				substr(value, RSTART + 1)
		return value
	}
	function bad(what)
	{
		print "bench: " what >"/dev/stderr"
		failed = 1
	}
	function use(name)
	{
		if (!((name, "zorva") in figure))
			bad(name " is not in " numbers)
		used[name] = 1
	}
	function calls(    i)
	{
		print "| call | zorva | the kernel\047s own | limit | the kernel\047s own is |"
		print "|---|---|---|---|---|"
		for (i = 1; i <= count; i++) {
			split(row[i], part, "|")
			if (part[1] ~ /^report /)
				continue
			use(part[1])
			printf "| %s | %s | %s | %s | %s |\n", part[2],
				cell(part[1], "zorva"), cell(part[1], "kernel"),
				cell(part[1], "limit"), part[3]
		}
	}
	# What a reader of the first page wants to know.
	function cost(    i, name)
	{
		split("malloc_free_64 mutex_take_give sem_take_give" \
			" send_receive_64 event_set_wait timer_start_stop_1",
			name, " ")
		print "| instructions of | zorva | the kernel\047s own |"
		print "|---|---|---|"
		for (i = 1; i in name; i++)
			printf "| %s | %s | %s |\n", title[name[i]],
				cell(name[i], "zorva"), cell(name[i], "kernel")
		print ""
		figure["size_all_data", "zorva"] = \
			figure["size_data", "zorva"] + figure["size_bss", "zorva"]
		printf "The module has %s bytes of code, %s of constants, and" \
			" %s of data.\n", cell("size_code", "zorva"),
			cell("size_constants", "zorva"),
			cell("size_all_data", "zorva")
	}
	function reports(    i, name)
	{
		print "| report | instructions to read it whole | longest time with interrupts off | limit of that | longest wait of a take | limit of that |"
		print "|---|---|---|---|---|---|"
		for (i = 1; i <= count; i++) {
			split(row[i], part, "|")
			if (part[1] !~ /^report /)
				continue
			name = substr(part[1], 8)
			use("report_" name)
			use("irqs_off_" name)
			if (name != "none")
				use("take_waits_" name)
			printf "| %s | %s | %s | %s | %s | %s |\n", part[2],
				cell("report_" name, "zorva"),
				cell("irqs_off_" name, "zorva"),
				cell("irqs_off_" name, "limit"),
				cell("take_waits_" name, "zorva"),
				cell("take_waits_" name, "limit")
		}
	}
	function size_row(title, suffix, key,    i, line)
	{
		line = "| " title " |"
		for (i = 1; i <= 5; i++)
			line = line " " cell("size_" kind[i] suffix, key) " |"
		print line
	}
	function sizes(    i, source)
	{
		split("text code constants data bss", kind, " ")
		print "| bytes of | .text | all code | constants | data | bss |"
		print "|---|---|---|---|---|---|"
		for (i = 1; i <= sources; i++)
			size_row("`" source_of[i] "`", "_of_" source_of[i],
				"zorva")
		size_row("the module", "", "zorva")
		size_row("limit", "", "limit")
	}
	BEGIN {
		while ((getline line < numbers) > 0) {
			if (!match(line, /"name": "[a-z_0-9]+"/))
				continue
			name = substr(line, RSTART + 9, RLENGTH - 10)
			while (match(line, /"[a-z]+": ([0-9]+|null)/)) {
				split(substr(line, RSTART, RLENGTH), part, "\": ")
				figure[name, substr(part[1], 2)] = part[2]
				line = substr(line, RSTART + RLENGTH)
			}
			names[name] = 1
			if (name ~ /^size_/)
				used[name] = 1
			if (sub(/^size_text_of_/, "", name))
				source_of[++sources] = name
		}
		while ((getline line < rows) > 0)
			if (line !~ /^#/) {
				row[++count] = line
				split(line, part, "|")
				title[part[1]] = part[2]
			}
		while ((getline line < limits) > 0)
			if (line !~ /^#/ && split(line, part, " ") == 2 &&
			    figure[part[1], "limit"] != part[2])
				bad(part[1] ": the limit is " part[2] \
					" now: measure anew")
		# What the board says about itself.
		used["counts_per_million"] = used["loop"] = 1
	}
	/^<!-- end of / {
		inside = 0
		++ends
	}
	!inside {
		print
	}
	/^<!-- calls -->$/ {
		calls()
		inside = 1
		++begins
	}
	/^<!-- cost -->$/ {
		cost()
		inside = 1
		++begins
	}
	/^<!-- sizes -->$/ {
		sizes()
		inside = 1
		++begins
	}
	/^<!-- reports -->$/ {
		reports()
		inside = 1
		++begins
	}
	END {
		if (begins != tables || ends != tables) {
			bad(FILENAME " lacks the markers of " tables " tables")
			exit 1
		}
		if (tables == 1)
			exit failed
		for (name in names)
			if (!(name in used))
				bad(name " is missing")
		exit failed
	}' "$1"
}

# In a table of parts, the figures of each column add up to its last row, which
# repeats those of the calls that its marker names.
check_parts()
{
	awk -v numbers="$numbers" -v spread="$spread" '
	function number(text)
	{
		gsub(/[ ,]/, "", text)
		return text + 0
	}
	BEGIN {
		while ((getline line < numbers) > 0)
			if (match(line, /"name": "[a-z_0-9]+", "zorva": [0-9]+/)) {
				split(substr(line, RSTART, RLENGTH), part, "[\",: ]+")
				figure[part[3]] = part[5] + 0
			}
	}
	/^<!-- parts of [a-z_0-9 ]+ -->$/ {
		columns = split($0, call, " ") - 1
		split("", sum)
		inside = 1
		++tables
		next
	}
	!inside {
		next
	}
	!/^\|/ {
		if (!total) {
			print "line " NR ": a table of parts without a sum"
			bad = 1
		}
		inside = total = 0
		next
	}
	{
		split($0, part, "|")
		total = part[2] ~ /^ (all|together) $/
		for (i = 4; i <= columns; i++) {
			if (!total) {
				sum[i] += number(part[i - 1])
				continue
			}
			off = sum[i] - figure[call[i]]
			if (sum[i] == number(part[i - 1]) &&
			    off * off <= spread * spread)
				continue
			printf "line %d: %s: the parts are %d, the sum says %d, the figure is %d\n",
				NR, call[i], sum[i], number(part[i - 1]),
				figure[call[i]]
			bad = 1
		}
	}
	END {
		if (!tables)
			print "no table of parts"
		exit bad || !tables
	}' "$text"
}

case ${1-} in
-h | --help)
	usage
	;;
--update)
	trap 'rm -f "$text.new" "$first.new"' EXIT
	made_anew "$text" >"$text.new"
	made_anew "$first" 1 >"$first.new"
	mv "$text.new" "$text"
	mv "$first.new" "$first"
	;;
--check)
	bad=0
	made_anew "$text" | diff -U 0 "$text" - || bad=1
	made_anew "$first" 1 | diff -U 0 "$first" - || bad=1
	check_parts || bad=1
	exit "$bad"
	;;
*)
	usage >&2
	exit 2
	;;
esac
