#!/usr/bin/env bash
# SPDX-License-Identifier: GPL-2.0
#
# Runs the fuzzer of the inspector's parser, in build/tools-fuzz, from the
# inputs kept in tests/fuzz/corpus/inspector. Fails when it finds something.
set -euo pipefail

usage()
{
	cat <<END
usage: fuzz.sh [--keep] [SECONDS]

  --keep   add the inputs that reach what those kept do not
  SECONDS  how long (60)
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
corpus=$root/tests/fuzz/corpus/inspector

# A build started from make must not join that make's job server.
unset MAKEFLAGS MFLAGS MAKELEVEL MAKEOVERRIDES

mkdir -p "$build/new"
echo "fuzz: build the inspector's parser"
{
	cmake -S "$source" -B "$build" -DZORVA_TOOL_FUZZ=ON \
		-DCMAKE_CXX_COMPILER=clang++ &&
		cmake --build "$build" --parallel "$(nproc)" \
			--target fuzz_parser
} >"$build/build.log" 2>&1 || {
	tail -n 40 "$build/build.log" >&2
	exit 1
}

status=0
"$build/fuzz_parser" -dict="$source/parser_fuzz.dict" -max_len=8192 \
	-max_total_time="$seconds" -print_final_stats=1 \
	-artifact_prefix="$build/" "$build/new" "$corpus" \
	>"$build/run.log" 2>&1 || status=$?
if [ "$status" -ne 0 ]; then
	tail -n 60 "$build/run.log" >&2
	echo "fuzz: the inspector's parser: found something (in $build)" >&2
	exit 1
fi
if [ -n "$keep" ]; then
	"$build/fuzz_parser" -merge=1 "$corpus" "$build/new" \
		>"$build/merge.log" 2>&1
fi
echo "fuzz: the inspector's parser: nothing found;" \
	"$(sed -n 's/^stat::number_of_executed_units: //p' "$build/run.log")" \
	"inputs in $seconds s, $(find "$corpus" -type f | wc -l) kept"
