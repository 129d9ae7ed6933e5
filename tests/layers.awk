# SPDX-License-Identifier: GPL-2.0
#
# layers.awk docs/architecture.md SOURCE...: prints each include that does not
# lead to a lower layer of the table there, and what the table and the sources
# do not have in common. With -v edges=1 it prints each include instead, as
# "FROM TO", and each source with its layer and public headers, as
# "SOURCE LAYER HEADER..."

function fail(text)
{
	print FILENAME ":" FNR ": " text
}

/^<!-- layers -->$/ {
	inside = 1
}

/^<!-- end of layers -->$/ {
	inside = 0
}

# A header is known by its source, a public one by the source of its row.
inside && /^\| [0-9]/ {
	split($0, cell, "|")
	gsub(/[` ]/, "", cell[3])
	source = cell[3]
	layer[source] = cell[2] + 0
	unseen[source] = 1
	headers[source] = ""
	while (match(cell[4], /`[a-z]+\.h`/)) {
		name = substr(cell[4], RSTART + 1, RLENGTH - 2)
		owner["zorva/" name] = source
		headers[source] = headers[source] " " name
		cell[4] = substr(cell[4], RSTART + RLENGTH)
	}
}

FILENAME ~ /\.md$/ {
	next
}

FNR == 1 {
	own = FILENAME
	sub(/.*\//, "", own)
	sub(/\..*/, "", own)
	if (!(own in layer))
		fail(own " is not in the table of layers")
	delete unseen[own]
}

/^#include "/ {
	name = $2
	gsub(/"/, "", name)
	if (name == "zk.h" || name == "zk_inline.h" ||
	    name == "zorva/types.h")
		next
	if (name in owner) {
		source = owner[name]
	} else {
		source = name
		sub(/.*\//, "", source)
		sub(/\..*/, "", source)
	}
	if (source == own)
		next
	if (edges && !((own, source) in printed))
		print own, source
	printed[own, source] = 1
	if (edges)
		next
	if (!(source in layer))
		fail(name " is not in the table of layers")
	else if (layer[source] >= layer[own])
		fail(own " is in layer " layer[own] ", " name " in layer " \
			layer[source])
}

END {
	if (edges) {
		for (source in layer)
			print source, layer[source] headers[source]
		exit
	}
	for (source in unseen)
		print source ": in the table of layers, but not there"
}
