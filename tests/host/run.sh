#!/usr/bin/env bash
# SPDX-License-Identifier: GPL-2.0
#
# Builds the host's library, installs it under build/host, and tests it from
# there alone: its rules, the module in many orders of threads, the example,
# and the example with planted faults, each of which has to be found.
set -euo pipefail

usage()
{
	cat <<END
usage: run.sh [COUNTS]

  COUNTS  a file for "PASSED FAILED", the numbers of tests

HOST_WIDTHS=64 makes and tests only the library of 64 bits, not that of 32.
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
root=$(cd "$(dirname "$0")/../.." && pwd)
build=$root/build/host
installed=$build/installed
log=$build/run.log
passed=0
failed=0

# A build started from make must not join that make's job server.
unset MAKEFLAGS MFLAGS MAKELEVEL MAKEOVERRIDES

mkdir -p "$build"
exec 9>"$build/.lock"
flock -n 9 || {
	echo "host: waiting: another run uses $build"
	flock 9
}

# check NAME COMMAND...
check()
{
	local name=$1 start=$SECONDS
	shift

	if "$@" >"$log" 2>&1; then
		echo "host: $name: ok ($((SECONDS - start)) s)"
		passed=$((passed + 1))
	else
		cat "$log" >&2
		echo "host: $name: FAILED"
		failed=$((failed + 1))
	fi
}

# from_installed SOURCE NAME [OPTION...]: builds a directory of tests and runs
# them
from_installed()
{
	local source=$1 name=$2
	shift 2

	cmake -S "$source" -B "$build/$name" -DCMAKE_PREFIX_PATH="$installed" \
		"$@" &&
		cmake --build "$build/$name" --parallel "$(nproc)" &&
		ctest --test-dir "$build/$name" --output-on-failure \
			--no-tests=error
}

# as_32 COMMAND...: what CMake compiles there is 32-bit code
as_32()
{
	CFLAGS=-m32 CXXFLAGS=-m32 "$@"
}

# without_gtest SOURCE NAME: there is none for 32-bit code
without_gtest()
{
	from_installed "$@" -DCMAKE_DISABLE_FIND_PACKAGE_GTest=ON
}

# flags PACKAGE WIDTH: by pkg-config
flags()
{
	PKG_CONFIG_PATH=$(dirname "$(find "$installed" -name "$1.pc")") \
		pkg-config --define-variable=width="$2" --cflags --libs "$1"
}

# by_pkg_config PACKAGE WIDTH: the plain C test, without CMake
by_pkg_config()
{
	local program=$build/link_$1_$2

	# shellcheck disable=SC2046
	gcc -g -m"$2" "$root"/examples/host/link.c \
		"$root"/examples/host/link_c_test.c $(flags "$1" "$2") \
		-o "$program" && "$program"
}

# Each call in each context that docs/contexts.md has a "no" for was made there
# and told of.
documented()
{
	{
		cat "$build/renamed"
		echo zorva_thread_wait
	} | awk -f "$root/tests/host/contexts.awk" - "$root/docs/contexts.md" |
		sort >"$build/documented"
	test -s "$build/documented" || return
	"$build/tests/contexts_test" | sort >"$build/told"
	comm -23 "$build/documented" "$build/told" >"$build/missing"
	! grep . "$build/missing"
}

# shown BEGIN: of what the page shows indented, the part from a line that begins
# like that to the next text or the next command of the shell's
shown()
{
	awk -v begin="    $1" '!code && index($0, begin) == 1 { code = 1 }
		code && (/^[^ ]/ || /^    cmake -S/) { exit }
		code { print substr($0, 5) }' "$root/docs/host.md"
}

# The program that the page shows, as the page has it built: in plain C alone.
listing()
{
	local page=$build/page

	rm -rf "$page"
	mkdir -p "$page"
	shown '#include' >"$page/my_test.c"
	shown cmake_minimum >"$page/CMakeLists.txt"
	cmake -S "$page" -B "$page/build" -DCMAKE_BUILD_TYPE=Debug \
		-DCMAKE_PREFIX_PATH="$installed" -DCMAKE_C_FLAGS=-Wall &&
		cmake --build "$page/build" &&
		"$page/build/my_test" | grep -x passed || return
	# shellcheck disable=SC2046
	gcc -g -Wall "$page/my_test.c" $(flags zorva-host 64) \
		-o "$page/my_test" &&
		"$page/my_test" | grep -x passed || return
	# Without what the page says that it needs, it fails.
	sed -i '/zorva_thread_wait/d' "$page/my_test.c"
	cmake --build "$page/build" && ! "$page/build/my_test"
}

# planted NAME TEXT SED...: the example with a fault in a copy of it; the plain
# C test has to fail and to tell that text
planted()
{
	local name=$1 text=$2 status=0
	shift 2

	rm -rf "$build/planted/$name"
	mkdir -p "$build/planted"
	cp -r "$root/examples/host" "$build/planted/$name"
	sed -i "$@" "$build/planted/$name/link.c"
	! cmp -s "$root/examples/host/link.c" "$build/planted/$name/link.c" || {
		echo "nothing was planted"
		return 1
	}
	without_gtest "$build/planted/$name" "planted_$name" \
		>"$log.planted" 2>&1 || status=$?
	cat "$log.planted"
	[ "$status" -ne 0 ] && grep -Eq "$text" "$log.planted"
}

start=$SECONDS
{
	cmake -S "$root/plat/host" -B "$build" \
		-DCMAKE_INSTALL_PREFIX="$installed" \
		-DZORVA_HOST_WIDTHS="${HOST_WIDTHS:-64;32}" &&
		cmake --build "$build" --parallel "$(nproc)" &&
		rm -rf "$installed" && cmake --install "$build"
} >"$log" 2>&1 || {
	cat "$log" >&2
	echo "host: cannot be built" >&2
	exit 1
}
grep -A3 'warning:' "$log" >&2 || true
echo "host: library built ($((SECONDS - start)) s)"

check "rules and orders" from_installed "$root/tests/host" tests
check "table of docs/contexts.md" documented
check "example" from_installed "$root/examples/host" example
check "example without CMake" by_pkg_config zorva-host 64
check "example without CMake, watched" by_pkg_config zorva-host-asan 64
if [[ ${HOST_WIDTHS:-64;32} == *32* ]]; then
	check "rules and orders as 32-bit code" \
		as_32 from_installed "$root/tests/host" tests_32
	check "example as 32-bit code" \
		as_32 without_gtest "$root/examples/host" example_32
	check "example as 32-bit code without CMake" \
		by_pkg_config zorva-host 32
fi
check "listing of docs/host.md" listing
check "planted deadlock" planted deadlock \
	"seed [0-9]+ of .*deadlock: threads wait for each other" \
	'/^	count = losses/i\	zorva_mutex_take(OWNER, links_lock);\n	zorva_mutex_give(OWNER, links_lock);'
check "planted leak" planted leak \
	"left: what was made by zorva_malloc at link.c:[0-9]+" \
	'/zorva_free(OWNER, losses);/d'
check "planted lost wake-up" planted wakeup \
	"lost wake-up: .*" \
	'/zorva_event_set(OWNER, changes, nothing);/d'
check "planted sleep in an interrupt" planted context \
	"link.c:[0-9]+: zorva_mutex_take: may sleep, and is called in an interrupt" \
	'/zorva_wake_up(OWNER, wait);/i\	zorva_mutex_take(OWNER, links_lock);'

[ -z "$counts" ] || echo "$passed $failed" >"$counts"
echo "host: $passed passed, $failed failed ($((SECONDS - start)) s)"
[ "$failed" -eq 0 ]
