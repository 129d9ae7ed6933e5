# SPDX-License-Identifier: GPL-2.0
#
# contexts.awk NAMES TABLE
#
# Writes "ok CALL: CONTEXT" for each "no" in the table of docs/contexts.md, as
# contexts_test does for what it has seen refused. NAMES has the functions of
# the public headers, one in the first word of each line.

FNR == NR {
	sub(/_track$/, "", $1)
	known[$1]
	next
}
/^\| calls / {
	columns = split($0, context, / *\| */)
	next
}
/^\| `zorva_/ {
	split($0, cell, / *\| */)
	count = split(cell[2], each, /, */)
	stem = ""
	for (i = 1; i <= count; i++) {
		name = each[i]
		sub(/`[^`]*$/, "", name)
		sub(/^`/, "", name)
		if (name ~ /^_/)
			name = stem name
		stem = name
		sub(/_[a-z]+$/, "", stem)
		pattern = "^" name "$"
		if (sub(/\.\.\./, "", name))
			pattern = "^" name
		for (function_name in known)
			if (function_name ~ pattern)
				for (c = 4; c <= 6; c++)
					if (cell[c] == "no")
						print "ok " function_name ": " \
							context[c]
	}
}
