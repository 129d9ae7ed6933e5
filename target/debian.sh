# SPDX-License-Identifier: GPL-2.0
# shellcheck shell=bash
#
# Packages of another suite, or source packages, from the archive that this
# machine already uses. Its own lists and caches stay as they are: apt is
# given private directories and a copy of the archive's entries in which only
# the type and the suite differ. Sourced after lib.sh.

# The one-line entries of a sources.list that name the main archive.
debian_list_entries()
{
	awk -v type="$1" -v suite="$2" -v ours="$3" '
	{
		sub(/#.*/, "")
		if ($1 != "deb")
			next
		options = ""
		rest = $0
		sub(/^[ \t]*deb[ \t]+/, "", rest)
		if (match(rest, /^\[[^]]*\][ \t]+/)) {
			options = substr(rest, 1, RLENGTH)
			rest = substr(rest, RLENGTH + 1)
		}
		count = split(rest, field)
		if (index(ours, " " field[2] " ") == 0)
			next
		for (i = 3; i <= count; i++)
			if (field[i] == "main") {
				print type " " options field[1] " " suite " main"
				break
			}
	}' "$4"
}

# The same for a .sources file: stanzas of fields, which may go on over
# several lines (a key in Signed-By does).
debian_sources_entries()
{
	awk -v type="$1" -v suite="$2" -v ours="$3" '
	function has(list, word)
	{
		return index(" " list " ", " " word " ") != 0
	}
	function finish(    i, n, name, wanted, kept)
	{
		n = split(value["suites"], name, " ")
		for (i = 1; i <= n; i++)
			if (index(ours, " " name[i] " ") != 0)
				wanted = 1
		if (wanted && has(value["types"], "deb") &&
		    has(value["components"], "main") &&
		    tolower(value["enabled"]) != "no") {
			print "Types: " type
			print "Suites: " suite
			print "Components: main"
			printf "%s\n", others
		}
		split("", value)
		others = ""
		key = ""
	}
	/^#/ {
		next
	}
	/^[ \t]*$/ {
		finish()
		next
	}
	/^[^ \t]/ {
		key = tolower($0)
		sub(/[ \t]*:.*/, "", key)
	}
	{
		text = $0
		if (text ~ /^[^ \t]/)
			sub(/^[^:]*:/, "", text)
		gsub(/[ \t]+/, " ", text)
		sub(/^ /, "", text)
		sub(/ $/, "", text)
		value[key] = value[key] (value[key] == "" ? "" : " ") text
		if (key != "types" && key != "suites" && key != "components")
			others = others $0 "\n"
	}
	END {
		finish()
	}' "$4"
}

# Where apt itself looks, whatever this machine's configuration says.
apt_path()
{
	apt-config shell path "$1" | sed "s/^path='\(.*\)'$/\1/"
}

# debian_archive DIR TYPE SUITE
#
# Prepares DIR/apt.conf for `apt-get -c`, with the archive's entries for one
# type (deb or deb-src) and one suite, and fetches the lists.
debian_archive()
{
	local dir=$1 type=$2 suite=$3
	local codename ours list parts file

	command -v apt-get >/dev/null || {
		echo "apt-get is missing: this needs a Debian machine"
		return 1
	}
	# shellcheck source=/dev/null
	codename=$(. /etc/os-release && echo "${VERSION_CODENAME:-}")
	ours=" $codename stable oldstable testing unstable sid "
	list=$(apt_path Dir::Etc::SourceList/f)
	parts=$(apt_path Dir::Etc::SourceParts/d)

	mkdir -p "$dir/sources" "$dir/lists/partial" \
		"$dir/cache/archives/partial"
	for file in "$list" "$parts"/*.list; do
		if [ -f "$file" ]; then
			debian_list_entries "$type" "$suite" "$ours" "$file"
		fi
	done | sort -u >"$dir/sources/archive.list"
	for file in "$parts"/*.sources; do
		if [ -f "$file" ]; then
			debian_sources_entries "$type" "$suite" "$ours" "$file"
		fi
	done >"$dir/sources/archive.sources"
	if ! cat "$dir"/sources/* | grep -q .; then
		echo "no entry for Debian's main archive ($codename) in $list" \
			"or $parts"
		return 1
	fi

	# The hooks that some machines attach to apt concern their own caches,
	# and of what is installed here the archive may not have the version.
	cat >"$dir/apt.conf" <<-END
	#clear APT::Update::Pre-Invoke;
	#clear APT::Update::Post-Invoke;
	#clear APT::Update::Post-Invoke-Success;
	APT::Sandbox::User "root";
	Acquire::Languages "none";
	Acquire::Retries "3";
	Dir::Etc::SourceList "/dev/null";
	Dir::Etc::SourceParts "$dir/sources/";
	Dir::State::Lists "$dir/lists/";
	Dir::State::status "/dev/null";
	Dir::Cache "$dir/cache/";
	END

	# An entry of somebody else's may have passed for the archive's and lack
	# the suite: what counts is whether the package is found afterwards.
	apt-get -c "$dir/apt.conf" -q update ||
		echo "some lists were not fetched"
}

# debian_source DIR PACKAGE
#
# Unpacks the source package of the Debian release that this machine runs as
# DIR/PACKAGE, with Debian's patches.
debian_source()
{
	local dir=$1 package=$2 codename

	# shellcheck source=/dev/null
	codename=$(. /etc/os-release && echo "${VERSION_CODENAME:-stable}")
	debian_archive "$dir/apt" deb-src "$codename"
	cd "$dir" || return
	apt-get -c "$dir/apt/apt.conf" -q source --download-only \
		--only-source "$package"
	# apt has compared the files with the archive's signed lists.
	dpkg-source --no-check -x "$package"_*.dsc "$package"
}
