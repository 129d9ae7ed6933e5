# SPDX-License-Identifier: GPL-2.0
#
# kernel-doc.awk EXPORTS HEADER...
#
# Compares the functions that the headers declare with the list of exported
# symbols, which has none of those that they define themselves, and each kernel-doc comment with the declaration behind it. Prints
# one line for everything that is missing or superfluous.

function problem(text)
{
	printf "%s:%d: %s\n", FILENAME, FNR, text
}

# The name of one parameter, from its declaration.
function parameter(text,    part)
{
	gsub(/__attribute__.*/, "", text)
	if (match(text, /\(\*[ ]*[A-Za-z_0-9]+/)) {
		part = substr(text, RSTART, RLENGTH)
		sub(/\(\*[ ]*/, "", part)
		return part
	}
	gsub(/\[[^]]*\]/, "", text)
	gsub(/[ ]+$/, "", text)
	match(text, /[A-Za-z_0-9.]+$/)
	return substr(text, RSTART, RLENGTH)
}

# Fills names[] with the parameters of a declaration.
function parameters(text, names,    i, c, depth, part, count)
{
	split("", names)
	count = 0
	sub(/^[^(]*\(/, "", text)
	depth = 1
	part = ""
	for (i = 1; i <= length(text) && depth > 0; i++) {
		c = substr(text, i, 1)
		if (c == "(")
			depth++
		if (c == ")")
			depth--
		if ((c == "," && depth == 1) || depth == 0) {
			part = parameter(part)
			if (part != "void" && part != "...")
				names[++count] = part
			part = ""
		} else {
			part = part c
		}
	}
	return count
}

function declaration(text,    head, name, count, names, known, i,
    rest, said)
{
	gsub(/[ \t]+/, " ", text)
	sub(/^ /, "", text)

	if (text ~ /^extern / && text !~ /\(/) {
		head = text
		gsub(/\[[^]]*\]|;/, "", head)
		gsub(/ +$/, "", head)
		match(head, /[A-Za-z_0-9]+$/)
		declared[substr(head, RSTART, RLENGTH)] = 1
		return
	}
	if (text ~ /^(typedef|struct|enum|union) [^(]*[;{]/ ||
	    text ~ /^typedef/ || text !~ /\(/)
		return

	head = text
	sub(/ ?\(.*/, "", head)
	match(head, /[A-Za-z_0-9]+$/)
	name = substr(head, RSTART, RLENGTH)
	head = substr(head, 1, RSTART - 1)
	declared[name] = 1
	if (!compiled_in && !(name in exported))
		problem(name "() is not exported")
	if (comment == "") {
		problem(name "() has no kernel-doc comment")
		return
	}

	if (comment !~ "^" name "\\(\\) - [^\n]")
		problem(name "(): the comment does not begin with its name")
	count = parameters(text, names)
	split("", known)
	for (i = 1; i <= count; i++) {
		known[names[i]] = 1
		if (comment !~ "\n@" names[i] ": [^\n]")
			problem(name "(): @" names[i] " is not explained")
	}
	rest = comment
	while (match(rest, /\n@[A-Za-z_0-9]+:/)) {
		said = substr(rest, RSTART + 2, RLENGTH - 3)
		if (!(said in known))
			problem(name "(): @" said " is no parameter")
		rest = substr(rest, RSTART + 1)
	}
	if (comment !~ /\nContext: [^\n]/)
		problem(name "(): no \"Context:\"")
	if (head ~ /(^| )void $/) {
		if (comment ~ /\nReturn:/)
			problem(name "(): \"Return:\" of a void function")
	} else if (comment !~ /\nReturn: [^\n]/) {
		problem(name "(): no \"Return:\"")
	}
}

# The first file is the list.
NR == FNR {
	exported[$1] = 1
	next
}

FNR == 1 {
	state = "code"
	text = ""
	comment = ""
}

state == "comment" {
	if ($0 ~ /\*\//) {
		state = "code"
		next
	}
	line = $0
	sub(/^ \* ?/, "", line)
	comment = comment (comment == "" ? "" : "\n") line
	next
}

# A function that is compiled into its users ends at the margin.
state == "body" {
	if (/^}$/)
		state = "code"
	next
}

state == "code" && text != "" && /^\{$/ {
	compiled_in = 1
	declaration(text)
	compiled_in = 0
	text = ""
	comment = ""
	state = "body"
	next
}

state == "plain" {
	if ($0 ~ /\*\//)
		state = "code"
	next
}

# A macro, with all its lines, is no declaration; nor is what C++ alone sees.
state == "macro" || /^#/ {
	state = $0 ~ /\\$/ ? "macro" : "code"
	next
}

/^\/\*\*$/ {
	state = "comment"
	comment = ""
	next
}

/^[ \t]*\/\*/ {
	if ($0 !~ /\*\//)
		state = "plain"
	next
}

/^extern "C" \{$/ || /^}$/ || /^[ \t]*$/ {
	next
}

# Declarations begin at the margin and end with a semicolon, or with the brace
# that closes a list.
{
	line = $0
	sub(/[ \t]*\/\*.*\*\//, "", line)
	text = text " " line
	opened += gsub(/\{/, "{", line)
	opened -= gsub(/\}/, "}", line)
	if (line ~ /;[ \t]*$/ && opened == 0) {
		declaration(text)
		text = ""
		comment = ""
	}
}

END {
	for (name in exported)
		if (!(name in declared))
			printf "%s is exported, but in no public header\n", name
}
