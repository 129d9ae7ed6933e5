# SPDX-License-Identifier: GPL-2.0
#
# entries.awk HEADER...
#
# Writes, for each function that the public headers declare, one of the same
# name that tells the host of the call and then calls the module's own, which
# was renamed to zorva_module_<name>. With -v names=1 it writes the pairs of
# names for objcopy instead. Functions that the host has itself, among them
# those with a variable list of arguments, are only renamed.

function trimmed(text)
{
	gsub(/^[ \t]+|[ \t]+$/, "", text)
	return text
}

# The name of one parameter, from its declaration.
function parameter(text)
{
	if (match(text, /\(\*[ ]*[A-Za-z_0-9]+/)) {
		text = substr(text, RSTART, RLENGTH)
		sub(/\(\*[ ]*/, "", text)
		return text
	}
	gsub(/\[[^]]*\]/, "", text)
	text = trimmed(text)
	match(text, /[A-Za-z_0-9]+$/)
	return substr(text, RSTART, RLENGTH)
}

function entry(text,    name, list, i, c, depth, part, args, file, line,
    object, each)
{
	gsub(/[ \t]+/, " ", text)
	text = trimmed(text)
	if (text ~ /^typedef/ || !match(text, /zorva_[a-z0-9_]+\(/))
		return
	name = substr(text, RSTART, RLENGTH - 1)
	if (names) {
		print name " zorva_module_" name
		return
	}
	if (name == "zorva_debug_pr_fn_register" || text ~ /\.\.\./)
		return

	list = substr(text, RSTART + RLENGTH)
	depth = 1
	file = "nullptr"
	line = "0"
	object = "nothing"
	for (i = 1; i <= length(list) && depth > 0; i++) {
		c = substr(list, i, 1)
		if (c == "(")
			depth++
		if (c == ")")
			depth--
		if ((c == "," && depth == 1) || depth == 0) {
			part = trimmed(part)
			each = parameter(part)
			if (each != "void" && each != "")
				args = args (args ? ", " : "") each
			if (part == "const char *file")
				file = "file"
			if (part == "u32 line")
				line = "line"
			if (part ~ /^(zorva_(mutex|sem|event|msg_queue)_t|struct notifier_block) \*/)
				object = "object_of(" each ")"
			if (part == "void *ptr")
				object = "object_of(ptr)"
			if (part == "void **pptr")
				object = "object_of(pptr ? *pptr : nullptr)"
			if (part == "u32 waitId")
				object = "wait_of(waitId)"
			part = ""
		} else {
			part = part c
		}
	}
	printf "extern \"C\" decltype(%s) zorva_module_%s;\n", name, name
	sub(/;$/, "", text)
	printf "%s\n{\n", text
	printf "\tconst host::entry here(\"%s\", ", name
	printf "__builtin_return_address(0), %s,\n\t\t\t       %s, host::%s);\n",
	    file, line, object
	printf "\n\treturn zorva_module_%s(%s);\n}\n\n", name, args
}

BEGIN {
	if (!names) {
		print "#include \"host.h\"\n"
		print "extern \"C\" {"
	}
}

/^#/ || continued {
	continued = /\\$/
	next
}
/^\/\*/ {
	comment = 1
}
comment {
	if (/\*\//)
		comment = 0
	next
}
/^{/ {
	body = 1
}
body {
	if (/^}/)
		body = 0
	text = ""
	next
}
/^}/ || /^extern "C"/ || /^$/ {
	text = ""
	next
}
{
	text = text " " $0
	if (/{$/)
		text = ""
	if (/;$/) {
		entry(text)
		text = ""
	}
}

END {
	if (!names)
		print "} /* extern \"C\" */"
}
