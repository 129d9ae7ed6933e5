#!/usr/bin/env bash
# SPDX-License-Identifier: GPL-2.0
#
# Runs the unit tests with the module's lines and branches counted, in
# build/coverage, and compares what did not run with the list of what cannot.
set -euo pipefail

usage()
{
	cat <<END
usage: coverage.sh

The report is build/coverage/html/index.html, the list tests/unit/uncovered.
END
}

if [ $# -gt 0 ]; then
	usage
	[ "$1" = -h ] || [ "$1" = --help ] || exit 2
	exit
fi
source=$(cd "$(dirname "$0")" && pwd)
root=$(cd "$source/../.." && pwd)
build=$root/build/coverage

# What cannot be covered is in the list, where its reason is, and not hidden by
# a mark in the source.
if grep -rnE '(GCOVR?|LCOV)_EXCL' "$root/plat"; then
	echo "coverage: the sources are not to be marked" >&2
	exit 1
fi

mkdir -p "$build/html"
exec 8>"$build/.lock-counts"
flock -n 8 || {
	echo "coverage: waiting: another run uses $build"
	flock 8
}

# Counts add up from one run to the next.
find "$build" -name '*.gcda' -delete
touch "$build/started"
"$source/run.sh" --coverage

# Counts belong to lines by their numbers.
if find "$root/plat/linux" "$root/plat/common" \( -name '*.cpp' -o \
	-name '*.h' \) \
	-newer "$build/started" | grep .; then
	echo "coverage: changed while the tests ran" >&2
	exit 1
fi

# No branch needs to be left out: the module knows no exceptions, and has no
# static object that is made when it is first used.
gcovr --root "$root" --filter "$root/plat/" \
	--exclude "$root/plat/host/" \
	--json "$build/coverage.json" \
	--html-details "$build/html/index.html" --html-title "zorva" "$build"
python3 "$source/coverage.py" "$root" "$build/coverage.json" \
	"$source/uncovered"
