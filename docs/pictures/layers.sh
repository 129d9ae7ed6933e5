#!/bin/bash
# SPDX-License-Identifier: GPL-2.0
#
# Draws docs/layers.svg: which source of the module includes which, as the
# sources say themselves.
set -euo pipefail

# shellcheck source=target/lib.sh
. "$(dirname "$0")/../../target/lib.sh"

usage()
{
	cat <<END
usage: layers.sh [--check]

  --check  compares the picture with the sources, and changes nothing
END
}

case ${1-} in
-h | --help)
	usage
	exit
	;;
--check | '') ;;
*)
	usage >&2
	exit 2
	;;
esac
picture=docs/layers.svg
module=plat/linux/zorva
cd "$ZORVA_ROOT"

# "FROM TO" for each include, "SOURCE LAYER HEADER..." for each source
includes()
{
	awk -v edges=1 -f tests/layers.awk docs/architecture.md \
		"$module"/zorva_*.{cpp,h} plat/common/*.{cpp,h} | LC_ALL=C sort
}

# The sources that know the kernel.
seam()
{
	grep -lE '^#include <(linux|asm|net)/' "$module"/*.{c,cpp,h} \
		plat/common/*.{cpp,h}
}

# What follows from other includes is left to them: each source points to the
# next ones below.
services()
{
	includes | awk '
		BEGIN { print "digraph {" }
		$2 ~ /^[0-9]+$/ { next }
		{ printf "\"%s\" -> \"%s\"\n", $1, $2 }
		END { print "}" }' | tred |
		sed -nE 's/^[[:space:]]*"?([a-z_]+)"? -> "?([a-z_]+)"?;.*/\1 -> \2/p' |
		LC_ALL=C sort
}

graph()
{
	local file

	cat <<'END'
digraph layers {
	bgcolor = white
	compound = true
	newrank = true
	nodesep = 0.18
	ranksep = 0.22
	node [fontname = "Helvetica", fontsize = 11, shape = box,
		style = "filled,rounded", fillcolor = white, color = "#5a6b7d",
		height = 0.3, margin = "0.1,0.05"]
	edge [color = "#5a6b7d", arrowsize = 0.6]
	graph [fontname = "Helvetica", fontsize = 11, fontcolor = "#33414f"]
	firmware [label = "the firmware's modules, in C or C++",
		fillcolor = "#dcebdc", width = 6]
	headers [label = "the public headers: #include <zorva/zorva.h>",
		fillcolor = "#f3ecd2", width = 6]
	kernel [label = "the Linux kernel", fillcolor = "#dcdfe6", width = 6]
	firmware -> headers
	subgraph cluster_services {
		label = "zorva.ko: the services, in C++"
		labeljust = l
		style = "filled,rounded"
		color = "#c3ccd6"
		fillcolor = "#eef3f8"
END
	includes | awk '$2 ~ /^[0-9]+$/ {
		name = $1
		sub(/^zorva_/, "", name)
		text = ""
		for (i = 3; i <= NF; i++)
			text = text (i > 3 ? ", " : "") $i
		printf "\t\t%s [label = <%s%s>]\n", $1, name, text == "" ? "" : \
			"<br/><font point-size=\"9\" color=\"#7a5c00\">" text "</font>"
	}'
	services | sed 's/^/\t\t/'
	cat <<'END'
	}
	subgraph cluster_seam {
		label = "the seam: all that knows the kernel, in C"
		labeljust = l
		style = "filled,rounded"
		color = "#c3ccd6"
		fillcolor = "#f6eef3"
		"zk.h" -> { END_OF_SEAM }
	}
END
	# The sources of the highest and of the lowest row stand for all.
	echo "	headers -> zorva_lkm [lhead = cluster_services]"
	echo "	zorva_comp -> \"zk.h\" [ltail = cluster_services, lhead = cluster_seam]"
	for file in $(seam); do
		echo "	\"${file##*/}\" -> kernel"
	done
	echo "}"
}

draw()
{
	graph | sed "s/END_OF_SEAM/$(seam | sed 's/.*/"&"/; s,"[^"]*/,",' |
		paste -sd ' ')/" | dot -Tsvg |
		sed -e '/^<!--.*-->$/d' -e '/^<!--/,/-->$/d' -e '/^$/d'
}

# Boxes and arrows, wherever the picture has them.
parts()
{
	sed -nE 's,.*<title>(.*)</title>.*,\1,p; s,.*<text [^>]*>(.*)</text>.*,\1,p' |
		LC_ALL=C sort
}

command -v dot >/dev/null || die "graphviz is not installed"
if [ "${1-}" = --check ]; then
	diff <(parts <"$picture") <(draw | parts) ||
		die "$picture does not show the sources: run docs/pictures/layers.sh"
else
	draw >"$picture.new"
	mv "$picture.new" "$picture"
fi
