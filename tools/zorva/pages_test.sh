#!/bin/bash
# SPDX-License-Identifier: GPL-2.0
#
# The manual pages and the completion of the inspector, as man and bash have
# them.
set -euo pipefail

if [ $# -ne 1 ]; then
	echo "usage: pages_test.sh PROGRAM" >&2
	exit 2
fi
program=$(realpath "$1")
here=$(cd "$(dirname "$0")" && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
bad=0

wrong()
{
	echo "$*"
	bad=1
}

"$here/man.sh" "$program" "$work/man"
mapfile -t commands < <("$program" --help |
	sed -n '/^Subcommands:/,/^$/s/^  \([a-z]*\) .*/\1/p')
[ ${#commands[@]} -gt 5 ] || wrong "only ${#commands[@]} commands"
for command in "${commands[@]}"; do
	MANWIDTH=200 man -l -P cat "$work/man/man1/zorva-$command.1" >"$work/page" 2>&1
	grep -q "zorva-$command - ." "$work/page" ||
		wrong "$command: no name in its page"
	for section in SYNOPSIS OPTIONS 'EXIT STATUS' 'SEE ALSO'; do
		grep -qx "$section" "$work/page" ||
			wrong "$command: no $section in its page"
	done
	[ -n "$(sed -n '/^EXAMPLES$/{n;/^  *zorva /p;}' "$work/page")" ] ||
		wrong "$command: no example"
	# What the build knows of itself is nobody's business.
	! grep -q "$program" "$work/page" || wrong "$command: shows a path"
	mandoc -T lint -W error "$work/man/man1/zorva-$command.1" ||
		wrong "$command: the form of its page"
done

# complete WORD...: what bash would offer for the last word
complete_words()
{
	(
		export PATH="${program%/*}:$PATH"
		# shellcheck source=/dev/null
		. "$here/zorva.bash-completion"
		COMP_WORDS=("$@")
		COMP_CWORD=$(($# - 1))
		_zorva
		printf '%s\n' "${COMPREPLY[@]}"
	)
}

offers()
{
	local wanted=$1
	shift

	# Who prints must not die of a reader that has seen enough.
	complete_words "$@" >"$work/offered"
	grep -qx -- "$wanted" "$work/offered" || wrong "no $wanted for: $*"
}

for command in "${commands[@]}"; do
	offers "$command" zorva ""
done
offers mem zorva me
offers --json zorva mem --j
offers --by zorva mem --b
offers site zorva mem --by s
offers never zorva mem --color n
[ -z "$(complete_words zorva mem --by x)" ] || wrong "offers what is none"
[ -z "$(complete_words zorva nonsense --x)" ] ||
	wrong "offers options of no command"
exit "$bad"
