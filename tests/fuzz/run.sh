#!/usr/bin/env bash
# SPDX-License-Identifier: GPL-2.0
#
# Runs the fuzzers on this machine, in build/fuzz, from the inputs kept in
# tests/fuzz/corpus. Fails when one finds something.
set -euo pipefail

usage()
{
	cat <<END
usage: run.sh [--keep] [SECONDS [TARGET...]]

  --keep   add the inputs that reach what those kept do not
  SECONDS  for each target (60)
  TARGET   calls, memory, filter, list (all)
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
if ! [[ ${1:-60} =~ ^[1-9][0-9]{0,6}$ ]]; then
	usage >&2
	exit 2
fi
seconds=${1:-60}
targets=("${@:2}")
[ ${#targets[@]} -gt 0 ] || targets=(calls memory filter list)

source=$(cd "$(dirname "$0")" && pwd)
root=$(cd "$source/../.." && pwd)
build=$root/build/fuzz
log=$build/build.log

for target in "${targets[@]}"; do
	if [ ! -d "$source/corpus/$target" ]; then
		usage >&2
		exit 2
	fi
done

# A build started from make must not join that make's job server.
unset MAKEFLAGS MFLAGS MAKELEVEL MAKEOVERRIDES

mkdir -p "$build"
exec 9>"$build/.lock"
flock -n 9 || {
	echo "fuzz: waiting: another run uses $build"
	flock 9
}
echo "fuzz: build"
{
	cmake -S "$root/tests/unit" -B "$build" -DZORVA_FUZZ=ON \
		-DCMAKE_CXX_COMPILER=clang++ &&
		cmake --build "$build" --parallel "$(nproc)"
} >"$log" 2>&1 || {
	cat "$log" >&2
	echo "fuzz: cannot be built" >&2
	exit 1
}
grep -A3 'warning:' "$log" >&2 || true

# An input is at most 300 steps of a dozen bytes.
options=(-max_len=3600 -timeout=30 -rss_limit_mb=2500 -print_final_stats=1)

# fuzz TARGET: lets it run, and shows what it found
fuzz()
{
	local target=$1 found=$build/found-$1 log=$build/$1.log status=0

	mkdir -p "$found"
	"$build/fuzz_$target" "${options[@]}" -max_total_time="$seconds" \
		-artifact_prefix="$build/$target-" "$found" \
		"$source/corpus/$target" >"$log" 2>&1 || status=$?
	if [ "$status" -ne 0 ]; then
		grep -E -m 1 -A 30 'Failure$|ERROR: ' "$log" || tail -n 30 "$log"
		echo "fuzz: $target: FAILED; the whole log: $log"
		sed -n "s|.*Test unit written to \(.*\)|fuzz: again: $build/fuzz_$target \1|p" \
			"$log"
		return 1
	fi
	echo "fuzz: $target: $(sed -n \
		's/^stat::number_of_executed_units: //p' "$log") inputs," \
		"$seconds s, nothing found"
}

# As many at a time as there are processors.
failed=0
running=0
for target in "${targets[@]}"; do
	if [ "$running" -ge "$(nproc)" ]; then
		wait -n || failed=1
		running=$((running - 1))
	fi
	fuzz "$target" &
	running=$((running + 1))
done
while [ "$running" -gt 0 ]; do
	wait -n || failed=1
	running=$((running - 1))
done

# Of what was found, only what reaches another place in the module.
if [ -n "$keep" ] && [ "$failed" -eq 0 ]; then
	for target in "${targets[@]}"; do
		"$build/fuzz_$target" "${options[@]}" -use_counters=0 -merge=1 \
			"$source/corpus/$target" "$build/found-$target" \
			>"$build/$target-merge.log" 2>&1 || {
			tail -n 30 "$build/$target-merge.log" >&2
			echo "fuzz: $target: cannot be merged" >&2
			exit 1
		}
		echo "fuzz: $target: $(find "$source/corpus/$target" -type f |
			wc -l) inputs kept"
	done
fi
exit "$failed"
