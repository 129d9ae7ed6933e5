# SPDX-License-Identifier: GPL-2.0
# shellcheck shell=bash
#
# Configuration fragments: what they ask for, and whether it came true.
# Sourced.

# Prints "OPTION VALUE" for what the fragments ask; the last one wins.
wanted_options()
{
	awk '
	/^CONFIG_[A-Za-z0-9_]+=/ {
		name = substr($0, 1, index($0, "=") - 1)
		value[name] = substr($0, index($0, "=") + 1)
	}
	/^# CONFIG_[A-Za-z0-9_]+ is not set$/ {
		value[$2] = "n"
	}
	END {
		for (name in value)
			print name, value[name]
	}' "$@" | LC_ALL=C sort
}

# Prints the fragments as one, in the form that allnoconfig reads.
write_fragment()
{
	wanted_options "$@" | awk '
	$2 == "n" {
		print "# " $1 " is not set"
		next
	}
	{
		print $1 "=" substr($0, length($1) + 2)
	}'
}

# check_options CONFIG FRAGMENT...
#
# An option whose dependencies are not met silently vanishes from the
# configuration: names those that did.
check_options()
{
	local config=$1 name value got bad=0
	shift

	while read -r name value; do
		got=$(sed -n "s/^$name=//p" "$config")
		if [ "${got:-n}" != "$value" ]; then
			echo "$name: $value is wanted, the result has ${got:-n}"
			bad=1
		fi
	done < <(wanted_options "$@")
	return "$bad"
}
