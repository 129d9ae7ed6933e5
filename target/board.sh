#!/bin/bash
# SPDX-License-Identifier: GPL-2.0
#
# What make run, make shell, make module-test and make target-test do with the
# board, once its kernel is there.
set -euo pipefail

# shellcheck source=target/lib.sh
. "$(dirname "$0")/lib.sh"

usage()
{
	cat <<END
usage: board.sh run | shell | module | module-test | info | check
       board.sh test | suites [COUNTS]

  run          the demonstration of the example firmware, or SCENARIO
  shell        a shell on the board, with the module and the examples at hand
  module       builds zorva, or the modules of M
  module-test  loads the modules of M with their suites, unloads them, and
               tells what failed and what is left
  info         paths and flags for builds of one's own
  check        looks at what is given here, and builds nothing
  test         the target tests, then the demonstration; writes "PASSED FAILED"
  suites       the target tests alone

Environment: M (directories with modules of one's own), SCENARIO (a shell
script for the board), FILES (more files for the board: HOST=PATH...), SHARE (a
folder of this machine that the board has at /mnt), KERNEL_BUILD (a kernel tree instead of the board's own),
BOARD_TIMEOUT (seconds; 300), BOARD_ARGS (more options for boot.sh),
BOARD_ICOUNT (an instruction takes 2^N ns in the tests; 4, or empty for the
host's own time), CROSS_COMPILE, ZORVA_CACHE.
END
}

case ${1-} in
-h | --help)
	usage
	exit
	;;
run | shell | module | module-test | info | check) max_arguments=1 ;;
test | suites) max_arguments=2 ;;
*) max_arguments=0 ;;
esac
if [ $# -eq 0 ] || [ $# -gt "$max_arguments" ]; then
	usage >&2
	exit 2
fi

# The directories; the kernel's make must not see the name.
read -r -a own_dirs <<<"${M-}"
read -r -a own_files <<<"${FILES-}"
scenario=${SCENARIO-}
share=${SHARE-}
unset M FILES SCENARIO SHARE

# Whatever is wrong with what was given is said before anything is built.
check_arguments()
{
	local file

	# shellcheck disable=SC2086 # several words
	"$ZORVA_ROOT/target/boot.sh" --check ${share:+--share "$share"} \
		${BOARD_ARGS-}
	need_cross_compiler "$CROSS_COMPILE"
	[ ${#own_dirs[@]} -eq 0 ] ||
		"$ZORVA_ROOT/target/firmware.sh" --check "${own_dirs[@]}"
	[ -z "$scenario" ] || [ -f "$scenario" ] ||
		die "SCENARIO=$scenario: no such file"
	for file in "${own_files[@]}"; do
		[[ $file == ?*=/?* ]] ||
			die "FILES: $file: say where the board has it (HOST=/PATH)"
		[ -f "${file%%=*}" ] || die "FILES: ${file%%=*}: no such file"
	done
	[ -z "${ZORVA_COMPONENTS-}" ] ||
		"$ZORVA_ROOT/plat/linux/scripts/components.sh" check \
			"${CROSS_COMPILE}gcc" "$ZORVA_COMPONENTS" >&2
}

check_arguments
[ "$1" != check ] || exit 0

KERNEL_BUILD=${KERNEL_BUILD:-$("$ZORVA_ROOT/target/kernel/build.sh" \
	--print-dir)}
export KERNEL_BUILD
kernel_facts "$KERNEL_BUILD"
built=$ZORVA_BUILD/target
shopt -s nullglob

# shellcheck source=target/own.sh
. "$ZORVA_ROOT/target/own.sh"

# boot NAME OPTION...: starts build/NAME.cpio.gz
boot()
{
	local name=$1
	shift

	# shellcheck disable=SC2086 # several words
	"$ZORVA_ROOT/target/boot.sh" --kernel "$KERNEL_BUILD/$image" \
		--arch "$arch" \
		--initrd "$ZORVA_BUILD/$name.cpio.gz" \
		--log "$ZORVA_LOGS/$name-console.log" \
		--timeout "${BOARD_TIMEOUT:-300}" ${BOARD_ARGS-} "$@"
}

make_root()
{
	local name=$1
	shift

	# Only a kernel that was not built here has modules of its own there.
	"$ZORVA_ROOT/target/rootfs/mkroot.sh" "$ZORVA_BUILD/$name.cpio.gz" \
		"$@" "$KERNEL_BUILD"/kernel-modules/*.ko
}

prepare()
{
	"$ZORVA_ROOT/target/busybox/build.sh" --arch "$arch"
	"$ZORVA_ROOT/target/modules.sh" "$@"
}

# What the board has of the inspector; after the modules, whose lines it names.
tool_files=("$ZORVA_BUILD/tools/board/zorva=/usr/bin/zorva"
	"$ZORVA_ROOT/tools/zorva/zorva-snapshot=/usr/bin/zorva-snapshot"
	"$ZORVA_ROOT/target/rootfs/metrics=/www/cgi-bin/metrics"
	"$ZORVA_BUILD/tools/board/modules.lines=/usr/share/zorva/modules.lines")
prepare_tools()
{
	"$ZORVA_ROOT/target/tools.sh" desk board lines
}

# Compiling it takes minutes, and a prompt is wanted at once: it is on the board
# when "make tools" or "make run" has made it.
prepare_tools_once_made()
{
	if [ -x "$ZORVA_BUILD/tools/board/zorva" ]; then
		prepare_tools
	else
		tool_files=()
	fi
}

# list_modules DIR...: fills the array "modules" with what was last built there;
# an object whose source is gone may still lie about.
list_modules()
{
	local dir

	modules=()
	for dir in "$@"; do
		mapfile -t -O ${#modules[@]} modules \
			< <(modules_in_order "$built/$dir")
	done
}

firmware_root()
{
	list_modules plat/linux/zorva examples
	board_module fw_board
	make_root "$1" "${modules[@]}" "$built/examples/demo.sh=$2" \
		"$board_module=/etc/board-module" "${tool_files[@]}"
}

test_root()
{
	local files=() file

	for file in "$built"/tests/target/*.sh "$built"/tests/target/user/*; do
		if [ -x "$file" ] || [[ $file == *.sh ]]; then
			files+=("$file=/opt/tests/${file##*/}")
		fi
	done
	list_modules plat/linux/zorva tests/target
	make_root test "${modules[@]}" "${files[@]}" \
		"$built/tests/target/run.sh=/etc/scenario"
}

# Sets passed, failed and skips. A board that came to harm fails even when no
# single test noticed.
run_suites()
{
	local counts=$1 board=0 report=0 icount

	passed=0 failed=0 skips=
	rm -f "$counts"
	# By instructions, the board's time is its own: tests that measure do
	# not depend on what else the host is doing.
	icount=${BOARD_ICOUNT-4}
	boot test ${icount:+--icount "$icount"} || board=$?
	"$ZORVA_ROOT/tests/target/report.sh" "$ZORVA_LOGS/test-console.log" \
		"$counts" || report=$?
	if [ -f "$counts" ]; then
		read -r passed failed <"$counts"
		skips=$(tail -n +2 "$counts")
	else
		say "board.sh: tests/target/report.sh gave no counts"
		failed=1
	fi
	if [ "$failed" -eq 0 ] && [ $((board + report)) -ne 0 ]; then
		say "board.sh: no test failed, but the run did" \
			"(board $board, report $report)"
		failed=1
	fi
}

# write_counts FILE: what run_suites has set, and what was added to it
write_counts()
{
	echo "$passed $failed${skips:+$'\n'$skips}" >"$1"
	say "target: $passed passed, $failed failed"
	[ "$failed" -eq 0 ]
}

# Runs both boots whatever the first one gives, and adds up what they say.
run_tests()
{
	local counts=$1 script own_kernel

	prepare module examples tests
	prepare_tools
	test_root
	firmware_root run /etc/scenario

	run_suites "$counts"
	if boot run --append SHOW_SNAPSHOT=1 >/dev/null; then
		say "ok: the demonstration"
		passed=$((passed + 1))
	else
		say "FAILED: the demonstration"
		failed=$((failed + 1))
	fi
	own_kernel=$("$ZORVA_ROOT/target/kernel/build.sh" --print-dir)
	for script in "tests/inspector/console.sh $ZORVA_LOGS/run-console.log" \
		"docs/pictures/recording.sh --check $ZORVA_LOGS/run-console.log" \
		"tests/inspector/board.sh $ZORVA_BUILD/run.cpio.gz"; do
		# Other machines have a console of another kind.
		[ "$arch" = mips ] || [[ $script != */board.sh* ]] || continue
		# The recording is of the board's own kernel.
		[ "$KERNEL_BUILD" = "$own_kernel" ] ||
			[[ $script != *recording* ]] || continue
		# shellcheck disable=SC2086 # with its arguments
		if "$ZORVA_ROOT"/$script; then
			passed=$((passed + 1))
		else
			failed=$((failed + 1))
		fi
	done
	write_counts "$counts"
}

if [ $((${#own_dirs[@]} + ${#own_files[@]})) -gt 0 ] ||
	[ -n "$scenario$share" ]; then
	case $1 in
	run | shell | module)
		own_"$1"
		exit
		;;
	esac
fi

case $1 in
module)
	build_lock
	"$ZORVA_ROOT/target/modules.sh" module
	ls -l "$built"/plat/linux/zorva/*.ko
	;;
module-test)
	[ ${#own_dirs[@]} -gt 0 ] || die "module-test: give M=DIR"
	own_test
	;;
info)
	show_info
	;;
run)
	build_lock
	prepare module examples
	prepare_tools
	firmware_root run /etc/scenario
	boot run --show
	;;
shell)
	[ -t 0 ] || die "a shell needs a terminal"
	build_lock
	prepare module examples
	prepare_tools_once_made
	# An archive of its own: a shell may stay open for long, and others
	# need not wait for its end.
	name=shell.$$
	trap 'rm -f "$ZORVA_BUILD/$name.cpio.gz"' EXIT
	firmware_root "$name" /root/demo.sh
	flock -u 8
	boot "$name" --shell
	;;
test)
	build_lock
	run_tests "${2:-$ZORVA_BUILD/target.counts}"
	;;
suites)
	build_lock
	prepare module tests
	test_root
	run_suites "${2:-$ZORVA_BUILD/target.counts}"
	write_counts "${2:-$ZORVA_BUILD/target.counts}"
	;;
esac
