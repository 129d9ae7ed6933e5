#!/bin/bash
# SPDX-License-Identifier: GPL-2.0
#
# The manual pages of the inspector, from what its commands say of themselves.
set -euo pipefail

usage()
{
	cat <<END
usage: man.sh PROGRAM OUT

  PROGRAM  the inspector
  OUT      a directory: it gets man1/zorva.1 and a page for each command
END
}

case ${1-} in
-h | --help)
	usage
	exit
	;;
esac
if [ $# -ne 2 ]; then
	usage >&2
	exit 2
fi
program=$(realpath "$1")
out=$2/man1
root=$(cd "$(dirname "$0")/../.." && pwd)
version=$(cat "$root/VERSION")
# The day of the release, so that the same sources give the same pages.
day=$(sed -nE "s/^## \[$version\] - ([0-9-]+)$/\1/p" "$root/CHANGELOG.md")
SOURCE_DATE_EPOCH=$(date -u -d "$day" +%s)
export SOURCE_DATE_EPOCH

commands()
{
	"$program" --help | sed -n '/^Subcommands:/,/^$/s/^  \([a-z]*\) .*/\1/p'
}

summary()
{
	"$program" --help |
		sed -n "/^Subcommands:/,/^$/s/^  $1  *\(.*\)/\1/p"
}

# The examples of a help's text as they stand there: help2man would fill lines.
examples()
{
	echo '.SH EXAMPLES'
	echo '.nf'
	sed -n '/^Examples\{0,1\}:/,/^$/s/^  //p' | sed 's/[\\-]/\\&/g'
	echo '.fi'
}

# page NAME SUMMARY SEE COMMAND: the program's own path is not shown
page()
{
	local name=$1 see=$3 upper=${1^^}

	sh -c "$4 --help" | examples >"$work/examples"
	help2man -N --version-string="$version" -n "$2" "$4" |
		awk -v examples="$work/examples" '
		/^\.S[SH] / || /^Exit status:/ {
			left_out = 0
		}
		/^\.S[SH] "?E(XAMPLES?|xamples?:)"?$/ {
			while ((getline line <examples) > 0)
				print line
			left_out = 1
		}
		!left_out' |
		sed -e '1d' -e "s/^\.TH .*/.TH ${upper//-/\\\\-} \"1\" \"$day\" \"zorva $version\" \"zorva\"/" \
			-e "/^\.SH NAME/{n;s/.*/$name \\\\- $2/}" \
			-e 's/^\.SS "SOURCE is one of:"/.SH SOURCES/' \
			-e 's/^Exit status: \(.*\)/.SH "EXIT STATUS"\n\1/' \
			-e 's/^NO_COLOR in the/.SH ENVIRONMENT\n&/'
	printf '.SH "SEE ALSO"\n'
	for other in $see; do
		[ "$other" = "$name" ] || printf '.BR %s (1)\n' "$other"
	done
}

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
rm -rf "$out"
mkdir -p "$out"
all=zorva
for command in $(commands); do
	all+=" zorva-$command"
done
# help2man runs its argument as a shell command.
quoted=$(printf '%q' "$program")
page zorva "what a running switch, or what was saved of one, has to say" \
	"$all" "$quoted" >"$out/zorva.1"
for command in $(commands); do
	page "zorva-$command" "$(summary "$command")" "$all" \
		"$quoted $command" >"$out/zorva-$command.1"
done
