#!/bin/sh
# SPDX-License-Identifier: GPL-2.0
#
# Looks at a list of components as the compiler sees it. Says in one line, with
# the line of the list, what is wrong with it.
set -eu
export LC_ALL=C

usage()
{
	cat <<END
usage: components.sh check CC LIST
       components.sh rows CC LIST
       components.sh compare CC LIST ROWS

  check    whether LIST is one that zorva can be built with
  rows     the rows of LIST, one a line, to compare others with
  compare  whether LIST has the rows that the file ROWS has

CC is a C compiler. Exit status: 1 when the list is refused; why is said.
END
}

case ${1-} in
-h | --help)
	usage
	exit
	;;
check | rows)
	[ $# -eq 3 ] || { usage >&2 && exit 2; }
	;;
compare)
	[ $# -eq 4 ] || { usage >&2 && exit 2; }
	;;
*)
	usage >&2
	exit 2
	;;
esac
command=$1
cc=$2
list=$3
others=${4-}

[ -f "$list" ] || {
	echo "$list: no such list of components"
	exit 1
}

# The rows as ID, name and texts, among the compiler's marks of lines.
preprocess()
{
	# shellcheck disable=SC2086 # a compiler may come with its launcher
	$cc -E -undef -nostdinc -x c -w \
		-D'ZORVA_COMPONENT(id, name, ...)=@row id #name __VA_ARGS__' \
		"$list" 2>&1 || true
}

preprocess | awk -v command="$command" -v list="$list" -v others="$others" '
function refuse(text)
{
	if (refused)
		exit 1
	refused = 1
	printf "%s\n", text
	exit 1
}

function at(text)
{
	refuse(file ":" line ": " text)
}

function fixed(id, name, texts)
{
	if (number == id && (short != name || rest != texts))
		at("row " id " has to be " name ", " texts \
			", without sub-components")
}

# The texts of a row, by quotes: how many there are.
function texts_of(text,    count)
{
	count = 0
	while (match(text, /"([^"\\]|\\.)*"/)) {
		count++
		text = substr(text, RSTART + RLENGTH)
		# Neighbours are one text for the compiler.
		while (match(text, /^ *"([^"\\]|\\.)*"/))
			text = substr(text, RLENGTH + 1)
	}
	return count
}

BEGIN {
	file = list
	rows = 0
}

# What the compiler itself has to say comes among the rest.
/^[^ #@].*: (fatal )?error: / {
	refuse($0)
}

/^# [0-9]+ "/ {
	line = $2 - 1
	file = $3
	gsub(/"/, "", file)
	if (file ~ /^</)
		file = list
	next
}

{
	line++
	gsub(/[ \t]+/, " ")
	sub(/^ /, "")
	sub(/ $/, "")
}

/^$/ {
	next
}

!/^@row / {
	at("\"" $0 "\" is no row of the list")
}

# Rows on one line of the list are one line here as well.
{
	count = split($0, row, /@row /)
	for (i = 2; i <= count; i++)
		take(row[i])
}

function take(text,    id)
{
	sub(/ $/, "", text)
	number = rows++
	id = text
	sub(/ ".*/, "", id)
	rest = substr(text, length(id) + 3)
	short = rest
	sub(/".*/, "", short)
	rest = substr(rest, length(short) + 3)
	gsub(/ ?, ?/, ", ", rest)

	if (number > 57)
		at("row " number " (" short ") is too many: there are 58, " \
			"0 to 57")
	# Another form of a number is left to the compiler.
	if (id ~ /^(0|[1-9][0-9]*)$/ && id + 0 != number)
		at("row " number " (" short ") has the ID " id \
			": the rows have to be in the order of their IDs")
	if (short !~ /^[A-Z0-9]+$/ || length(short) > 7)
		at("row " number ": the name " short \
			" is not 1 to 7 upper-case letters or digits")
	if (short in first)
		at("row " number " has the name " short ", as row " \
			first[short] " has")
	first[short] = number
	if (rest !~ /^"/)
		at("row " number " (" short ") has no description")
	if (texts_of(rest) > 33)
		at("row " number " (" short ") has " texts_of(rest) - 1 \
			" sub-components: there can be 32")
	fixed(0, "FIRST", "\"First\"")
	fixed(9, "ZORVA", "\"ZORVA\"")
	fixed(57, "LAST", "\"LAST\"")

	text = number " " short " " rest
	if (command == "rows")
		printf "%s\n", text
	if (command != "compare")
		return
	if ((getline other < others) <= 0)
		other = ""
	if (text == other)
		return
	split(other, word, " ")
	if (word[2] != short)
		at("row " number " is " short ", and " word[2] \
			" in the list that this zorva was built with; build" \
			" both with the same list")
	sub(/^[^"]*/, "", other)
	at("row " number " (" short ") is " rest ", and " other \
		" in the list that this zorva was built with; build both" \
		" with the same list")
}

END {
	if (!refused && rows != 58)
		refuse(list ": has " rows " rows; there have to be 58, 0 to 57")
	exit refused
}'
