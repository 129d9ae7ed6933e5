#!/bin/bash
# SPDX-License-Identifier: GPL-2.0
#
# The tests of what is around modules of one's own: what is said when something
# is wrong, the board, and the page for the first module in a fresh checkout.
set -euo pipefail

here=$(cd "$(dirname "$0")" && pwd)
# shellcheck source=target/lib.sh
. "$here/../../target/lib.sh"

usage()
{
	cat <<END
usage: run.sh [COUNTS]

  COUNTS  a file for "PASSED FAILED", the numbers of checks

Environment: as for board.sh.
END
}

case ${1-} in
-*)
	usage
	[ "$1" = -h ] || [ "$1" = --help ] || exit 2
	exit
	;;
esac
counts=${1:+$(realpath -m "$1")}
status=0
each=$(mktemp -d)
trap 'rm -rf "$each"' EXIT
"$here/messages.sh" "$each/messages" || status=1
"$here/board.sh" "$each/board" || status=1

# What git knows or would take, in a directory of its own: what is beside it
# belongs to the page.
fresh=$each/fresh
mkdir "$fresh"
mkdir "$fresh/zorva"
cd "$ZORVA_ROOT"
# shellcheck disable=SC2119 # all
list_sources | tar -c -T - | tar -x -C "$fresh/zorva"
unset ZORVA_BUILD_LOCKED M SCENARIO FILES SHARE
"$here/page.py" docs/first-module.md "$fresh/zorva" | tee "$each/said" ||
	status=1
sed -nE 's/^first-module\.md: ([0-9]+) passed, ([0-9]+) failed$/\1 \2/p' \
	"$each/said" >"$each/page"
# What broke before it could count has failed as well.
for part in messages board page; do
	[ -s "$each/$part" ] || echo "0 1" >"$each/$part"
done
read -r passed failed < <(cat "$each"/{messages,board,page} | awk '
	{ passed += $1; failed += $2 } END { print passed, failed }')
echo "kit: $passed passed, $failed failed"
[ -z "$counts" ] || echo "$passed $failed" >"$counts"
[ "$status" -eq 0 ] && [ "$failed" -eq 0 ]
