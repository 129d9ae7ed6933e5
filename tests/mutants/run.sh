#!/usr/bin/env bash
# SPDX-License-Identifier: GPL-2.0
#
# Builds the unit tests, once as they are and once counted, and tries changes
# of the module on them, in build/mutants.
set -euo pipefail

here=$(cd "$(dirname "$0")" && pwd)
root=$(cd "$here/../.." && pwd)
build=$root/build/mutants
mutants=(python3 "$here/mutants.py" --root "$root" "$@")

# These need no build.
for option in "$@"; do
	case $option in
	-h | --help | --list)
		exec "${mutants[@]}"
		;;
	esac
done

# Wrong options are refused before anything is built.
"${mutants[@]}" --list >/dev/null

# shellcheck source=target/lib.sh
. "$root/target/lib.sh"

mkdir -p "$build"
exec 8>"$build/.lock"
flock -n 8 || {
	say "mutants: waiting: another run uses $build"
	flock 8
}
"$root/tests/unit/run.sh" --build-only
step "mutants: configure" cmake -S "$root/tests/unit" \
	-B "$root/build/coverage" -DZORVA_COVERAGE=ON
exec "${mutants[@]}"
