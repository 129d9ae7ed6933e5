#!/bin/bash
# SPDX-License-Identifier: GPL-2.0
#
# Makes docs/recording.svg of what the demonstration has printed: the end of it,
# where four faults are made and one command names them.
set -euo pipefail

# shellcheck source=target/lib.sh
. "$(dirname "$0")/../../target/lib.sh"

usage()
{
	cat <<END
usage: recording.sh [--check] [LOG]

  --check  compares the picture with the log, and changes nothing
  LOG      the console's; build/logs/run-console.log, which "make run" writes
END
}

check=
case ${1-} in
-h | --help)
	usage
	exit
	;;
--check)
	check=yes
	shift
	;;
esac
if [ $# -gt 1 ]; then
	usage >&2
	exit 2
fi
log=${1:-$ZORVA_LOGS/run-console.log}
picture=$ZORVA_ROOT/docs/recording.svg
[ -f "$log" ] || die "$log is not there: run make run"

# Commands and answers; what the kernel says meanwhile is left out, and of the
# three looks at the faults the last is taken.
excerpt()
{
	tr -d '\r' <"$log" | awk '
		/^=== / { part = "" }
		/^=== Is all well/ { part = "before" }
		/^=== A leak, / { part = "faults" }
		part == "" || /^\[ *[0-9.]+\] / { next }
		part == "before" && /^# zorva check$/ { part = "shown" }
		part == "shown" && !/^ *$/ { print }
		part == "faults" && /^# echo / { print }
		part == "faults" && /^And here, now:/ { part = "shown" }
		part == "shown" && /^And here/ { next }
	' | grep -v '^And here'
}

draw()
{
	awk '
	function quoted(text)
	{
		gsub(/&/, "\\&amp;", text)
		gsub(/</, "\\&lt;", text)
		gsub(/>/, "\\&gt;", text)
		return text
	}
	{
		line[NR] = $0
		if (length($0) > widest)
			widest = length($0)
	}
	END {
		width = int(widest * 7.25) + 33
		height = NR * 17 + 28
		printf "<svg xmlns=\"http://www.w3.org/2000/svg\" "
		printf "viewBox=\"0 0 %d %d\" width=\"%d\" height=\"%d\">\n",
			width, height, width, height
		print "<title>The demonstration: four faults, and what names them</title>"
		print "<style>"
		print "text { font: 12px \"DejaVu Sans Mono\", Menlo, Consolas, monospace;"
		print "  fill: #d4d8dd; white-space: pre; animation: come 0.1s backwards }"
		print ".typed { fill: #8fd18f } .wrong { fill: #ff9d6b; font-weight: bold }"
		print ".fine { fill: #8fd18f; font-weight: bold }"
		print "@keyframes come { from { opacity: 0.3 } }"
		print "@media (prefers-reduced-motion) { text { animation: none } }"
		print "</style>"
		print "<rect width=\"100%\" height=\"100%\" rx=\"6\" fill=\"#1d2127\"/>"
		for (i = 1; i <= NR; i++) {
			kind = ""
			if (line[i] ~ /^# /) {
				kind = "typed"
				time += 0.5
			} else if (line[i] ~ /^Nothing looks wrong/) {
				kind = "fine"
			} else if (line[i] ~ /^[A-Z]+ ?[A-Z]*[ :,]/) {
				kind = "wrong"
				time += 0.5
			}
			time += 0.06
			printf "<text x=\"16\" y=\"%d\" xml:space=\"preserve\"", i * 17 + 9
			if (kind != "")
				printf " class=\"%s\"", kind
			printf " style=\"animation-delay:%.1fs\">%s</text>\n",
				time, quoted(line[i])
		}
		print "</svg>"
	}'
}

# What the picture says, as the excerpt has it.
read_picture()
{
	sed -n 's/^<text [^>]*>\(.*\)<\/text>$/\1/p' "$picture" |
		sed -e 's/&lt;/</g' -e 's/&gt;/>/g' -e 's/&amp;/\&/g'
}

# What differs from run to run: PIDs, times, how much has leaked, which of the two
# threads is named first, and what lies below the damaged block.
same_in_all_runs()
{
	sed -E -e 's/\([0-9]+\)/(PID)/g' -e 's/\b[0-9]+ s\b/N s/g' \
		-e 's/[0-9]+ blocks, .*/N blocks/' \
		-e 's/its end was overwritten, or its start by the block below, of .*/WHERE/' \
		-e 's/no block lies right below it: its own end was overwritten/WHERE/' \
		-e '/^DEADLOCK/s/(stp|lag)-update/THREAD/g' | LC_ALL=C sort
}

excerpt=$(excerpt)
[ "$(wc -l <<<"$excerpt")" -gt 10 ] ||
	die "$log: not the log of a demonstration that came to its end"
if [ -z "$check" ]; then
	draw <<<"$excerpt" >"$picture.new"
	mv "$picture.new" "$picture"
	exit
fi
diff <(read_picture | same_in_all_runs) <(same_in_all_runs <<<"$excerpt") ||
	die "docs/recording.svg shows what the demonstration does not print:" \
		"run docs/pictures/recording.sh"
