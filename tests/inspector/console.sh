#!/bin/bash
# SPDX-License-Identifier: GPL-2.0
#
# Reads the console's log of a board with four faults, and looks whether the
# inspector names each of them by file and line.
set -euo pipefail

# shellcheck source=target/lib.sh
. "$(dirname "$0")/../../target/lib.sh"
# shellcheck source=tests/inspector/faults.sh
. "$(dirname "$0")/faults.sh"

usage()
{
	cat <<END
usage: console.sh LOG

  LOG  the console of a board at the end of the demonstration, with a snapshot
END
}

case ${1-} in
-h | --help)
	usage
	exit
	;;
esac
if [ $# -ne 1 ] || [ ! -f "$1" ]; then
	usage >&2
	exit 2
fi
log=$1
zorva=$ZORVA_ROOT/build/tools/zorva
modules=$ZORVA_BUILD/target/examples

# A kernel that checks locks is spared the faults.
if grep -q '^This kernel would stop at a deadlock' "$log"; then
	say "ok: the console's log (without faults, on this kernel)"
	exit
fi

names_all_faults "$zorva" check "$log" --all --modules "$modules"
names_all_faults "$zorva" check "$log" --all
# As a serial line gives it.
sed 's/$/\r/' "$log" >"$log.crlf"
names_all_faults "$zorva" check "$log.crlf" --all --modules "$modules"
rm -f "$log.crlf"

if [ "$bad" -ne 0 ]; then
	say "FAILED: the faults in the console's log"
	exit 1
fi
say "ok: the faults in the console's log"
