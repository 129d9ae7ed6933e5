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
usage: run.sh

Environment: as for board.sh.
END
}

case ${1-} in
'') ;;
-h | --help)
	usage
	exit
	;;
*)
	usage >&2
	exit 2
	;;
esac

status=0
"$here/messages.sh" || status=1
"$here/board.sh" || status=1

# What git knows or would take, in a directory of its own: what is beside it
# belongs to the page.
fresh=$(mktemp -d)
trap 'rm -rf "$fresh"' EXIT
mkdir "$fresh/zorva"
cd "$ZORVA_ROOT"
# shellcheck disable=SC2119 # all
list_sources | tar -c -T - | tar -x -C "$fresh/zorva"
unset ZORVA_BUILD_LOCKED M SCENARIO FILES SHARE
"$here/page.py" docs/first-module.md "$fresh/zorva" || status=1
exit "$status"
