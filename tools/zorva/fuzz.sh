#!/usr/bin/env bash
# SPDX-License-Identifier: GPL-2.0
#
# Runs the fuzzers of what the inspector reads, in build/tools-fuzz: its parser,
# and its reader of debug information and lists of lines. They start from the
# inputs kept in tests/fuzz/corpus. Fails when they find something.
set -euo pipefail

usage()
{
	cat <<END
usage: fuzz.sh [--keep] [SECONDS]

  --keep   add the inputs that reach what those kept do not
  SECONDS  how long each of them runs (60)
END
}

keep=
case ${1-} in
-h | --help)
	usage
	exit
	;;
--keep)
	keep=yes
	shift
	;;
esac
if [ $# -gt 1 ] || ! [[ ${1:-60} =~ ^[1-9][0-9]{0,6}$ ]]; then
	usage >&2
	exit 2
fi
seconds=${1:-60}

source=$(cd "$(dirname "$0")" && pwd)
root=$(cd "$source/../.." && pwd)
build=$root/build/tools-fuzz

# A build started from make must not join that make's job server.
unset MAKEFLAGS MFLAGS MAKELEVEL MAKEOVERRIDES

mkdir -p "$build"
echo "fuzz: build the inspector's readers"
{
	cmake -S "$source" -B "$build" -DZORVA_TOOL_FUZZ=ON \
		-DCMAKE_CXX_COMPILER=clang++ &&
		cmake --build "$build" --parallel "$(nproc)"
} >"$build/build.log" 2>&1 || {
	tail -n 40 "$build/build.log" >&2
	exit 1
}

# fuzz NAME CORPUS WHAT OPTION...
fuzz()
{
	local fuzzer=$build/fuzz_$1 corpus=$root/tests/fuzz/corpus/$2 what=$3
	local new=$build/new-$1 log=$build/$1.log
	shift 3

	mkdir -p "$new"
	"$fuzzer" -max_len=8192 -max_total_time="$seconds" \
		-print_final_stats=1 -artifact_prefix="$build/" "$@" "$new" \
		"$corpus" >"$log" 2>&1 || {
		tail -n 60 "$log" >&2
		echo "fuzz: $what: found something (in $build)" >&2
		return 1
	}
	[ -z "$keep" ] || "$fuzzer" -merge=1 "$corpus" "$new" \
		>"$build/merge.log" 2>&1
	echo "fuzz: $what: nothing found;" \
		"$(sed -n 's/^stat::number_of_executed_units: //p' "$log")" \
		"inputs in $seconds s, $(find "$corpus" -type f | wc -l) kept"
}

status=0
fuzz parser inspector "the inspector's parser" \
	-dict="$source/parser_fuzz.dict" || status=1
fuzz symbols inspector-lines "the inspector's lines" || status=1
exit "$status"
