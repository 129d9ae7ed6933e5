#!/bin/bash
# SPDX-License-Identifier: GPL-2.0
#
# The target tests on other kernels and machines, with one table at the end:
# the board's own kernel as it watches itself, stock and with a coarse clock,
# its neighbours up to the newest, and the same on other architectures.
set -euo pipefail

# shellcheck source=target/lib.sh
. "$(dirname "$0")/../../target/lib.sh"

usage()
{
	cat <<END
usage: kernels.sh [--update] [COUNTS]

  --update  put the results of what was run into the table of docs/porting.md
  COUNTS    a file for "PASSED FAILED" of all that was run

Environment: KERNELS (lines: 5.10 6.1 6.12 newest packaged) and ARCHES (mips um
x86_64 arm64) choose; without them all runs are made. SOAK_SECONDS (60) is how
long a soak takes. Then BOARD_TIMEOUT (seconds; 1200), BOARD_ARGS (more options
for boot.sh), CROSS_COMPILE, ZORVA_CACHE.
END
}

# What there is: line, architecture, name, the kernel's options, the board's
# arguments, what runs ("test", "suites": without the demonstration, "run": that
# alone, or "soak"), and the detectors.
matrix()
{
	cat <<END
5.10|mips|debug|--with target/kernel/debug.config|--append slub_debug=FZ|test|lockdep, DEBUG_OBJECTS, PREEMPT, slub_debug=FZ
5.10|mips|stock|--without-patches||test|none
5.10|mips|coarse||--append clocksource=jiffies|test|none; a clock of ticks only
6.1|mips|board|||test|none
6.12|mips|board|||test|none
newest|mips|board|||test|none
newest|um|kasan|||suites|KASAN
newest|um|soak|||soak|KASAN
6.12|x86_64|preempt|||test|none
newest|x86_64|preempt|||test|none
newest|x86_64|kasan|--with target/kernel/kasan.config||test|KASAN, UBSAN, lockdep
6.12|x86_64|kcsan|--with target/kernel/kcsan.config||test|KCSAN
6.12|arm64|preempt|||test|none
newest|arm64|preempt|||test|none
6.12|x86_64|soak|||soak|none
newest|arm64|soak|||soak|none
newest|x86_64|hardened|--clang --with target/kernel/hardened.config --with target/kernel/hardened-x86_64.config --with target/kernel/btf.config||test|none; CFI, IBT, retpolines, BTF, MODVERSIONS
6.12|arm64|hardened|--clang --with target/kernel/hardened.config --with target/kernel/hardened-arm64.config||test|none; CFI, BTI, PAC, MODVERSIONS
packaged|x86_64|debian|||run|none; Debian's own kernel package
packaged|x86_64|soak||--append preempt=full|soak|none; Debian's own kernel package
END
}

update=
case ${1-} in
--update)
	update=1
	shift
	;;
-h | --help)
	usage
	exit
	;;
esac
case $#:${1-} in
0: | 1:[!-]*) ;;
*)
	usage >&2
	exit 2
	;;
esac
all_counts=${1:+$(realpath -m "$1")}

SOAK_SECONDS=${SOAK_SECONDS:-60}
KERNELS=${KERNELS:-5.10 6.1 6.12 newest packaged}
ARCHES=${ARCHES:-mips um x86_64 arm64}
check_words()
{
	local name=$1 word
	shift

	for word in ${!name}; do
		[[ " $* " == *" $word "* ]] ||
			die "$name=${!name}: $word is none of: $*"
	done
}
check_words KERNELS 5.10 6.1 6.12 newest packaged
check_words ARCHES mips um x86_64 arm64

cd "$ZORVA_ROOT"
mkdir -p "$ZORVA_BUILD" "$ZORVA_LOGS"
built=$ZORVA_BUILD
rows=$built/kernels.rows

# Prints the tree of a row, and builds it when it is missing.
tree_of()
{
	local line=$1 arch=$2
	shift 2

	if [ "$line" = packaged ]; then
		target/kernel/packaged.sh &&
			target/kernel/packaged.sh --print-dir
	else
		target/kernel/build.sh --line "$line" --arch "$arch" "$@" &&
			target/kernel/build.sh --line "$line" --arch "$arch" \
				"$@" --print-dir
	fi
}

# Plants a fault for each detector of a kernel, and looks at what hardens it.
# Says in a file what came of it, for the table.
plant_on()
{
	local said=$1 reported=0 missed=0 counts=$ZORVA_BUILD/detectors.counts

	: >"$said"
	grep -Eq '^CONFIG_(KASAN|KCSAN|CFI|CFI_CLANG)=y' \
		"$KERNEL_BUILD/.config" || return 0
	rm -f "$counts"
	tests/detectors/run.sh "$counts" || missed=1
	[ ! -f "$counts" ] || read -r reported missed <"$counts"
	printf '; of %d planted faults %d reported' "$((reported + missed))" \
		"$reported" >"$said"
	[ "$missed" -eq 0 ] || return 1
	grep -Eq '^CONFIG_(CFI|CFI_CLANG)=y' "$KERNEL_BUILD/.config" || return 0
	tests/detectors/hardening.sh || {
		printf '; not all hardened' >>"$said"
		return 1
	}
}

# Runs a row and keeps the logs. Its callers ask for its status, so it is not
# ended by a command that fails.
run_on()
{
	local name=$1 kernel=$2 what=$3 args=$4 counts=$5 status=0 log
	local logs=$ZORVA_BUILD/logs

	build_lock
	rm -f "$logs"/{test,run}-console.log
	# A board that watches itself takes more instructions than there is
	# time for by their count: it goes by the host's.
	case $name in
	*-debug) export BOARD_ICOUNT='' ;;
	esac
	export KERNEL_BUILD=$kernel BOARD_TIMEOUT=${BOARD_TIMEOUT:-1200}
	export BOARD_ARGS="$args ${BOARD_ARGS-}"
	if [ "$what" = test ] || [ "$what" = suites ]; then
		target/board.sh "$what" "$counts" || status=$?
		plant_on "$counts.planted" || status=$?
	elif [ "$what" = soak ]; then
		tests/soak/run.sh "$SOAK_SECONDS" || status=$?
		echo "$((status == 0)) $((status != 0))" >"$counts"
	elif target/board.sh run >"$ZORVA_LOGS/kernels-$name.out"; then
		echo "1 0" >"$counts"
	else
		status=$?
		echo "0 1" >"$counts"
	fi
	for log in test run; do
		[ ! -f "$logs/$log-console.log" ] ||
			mv "$logs/$log-console.log" \
				"$ZORVA_LOGS/$log-console-$name.log"
	done
	return "$status"
}

# What the table says of a kernel, as its own configuration and compiler, and
# what it is told, have it: version, processors, preemption and compiler.
facts_of()
{
	local config=$1/.config preemption=none processors=1

	kernel_facts "$1"
	! grep -q '^CONFIG_PREEMPT_VOLUNTARY=y' "$config" ||
		preemption=voluntary
	! grep -q '^CONFIG_PREEMPT=y' "$config" || preemption=full
	[[ " $2 " != *' preempt=full '* ]] || preemption=full
	! grep -q '^CONFIG_PREEMPT_LAZY=y' "$config" || preemption=lazy
	! grep -q '^CONFIG_SMP=y' "$config" || processors=4
	printf '%s | %s | %s | %s' "${version:-5.10}" "$processors" \
		"$preemption" "$(sed -n \
			-e 's/^CONFIG_CC_VERSION_TEXT=".*\(clang\) version \([^ ]*\).*/\1 \2/p' \
			-e 's/^CONFIG_CC_VERSION_TEXT="\([^ ]*\).* \([^ ]*\)"$/\1 \2/p' \
			"$config")"
}

skips_of()
{
	if [ "$2" = run ]; then
		echo "all suites: it has no KUNIT"
	elif [ "$2" = soak ]; then
		echo "the suites: this is the soak, $SOAK_SECONDS seconds"
	else
		{
			[ "$1" = mips ] ||
				echo "msgq_align, check_atomics: what they look at is of MIPS"
			sed -n 's/^skipped: \([^:]*\): \(.*\) # SKIP \(.*\)/\1 \2: \3/p' \
				"$3" 2>/dev/null
		} | awk '{ all = all (NR > 1 ? "; " : "") $0 }
			END { print NR ? all : "none" }'
	fi
}

# row LINE ARCH NAME OPTIONS ARGS WHAT DETECTORS
row()
{
	local line=$1 arch=$2 name=$1-$2-$3 options=$4 args=$5 what=$6
	local detectors=$7 counts planted passed=0 failed=0 status=0
	local start=$SECONDS
	local kernel facts="? | ? | ? | ?"

	counts=$ZORVA_BUILD/kernel-$name.counts
	planted=$counts.planted
	say "== $name"
	rm -f "$counts" "$planted"
	# shellcheck disable=SC2086 # several words
	if kernel=$(tree_of "$line" "$arch" $options); then
		facts=$(facts_of "$kernel" "$args")
		# The lock goes with the subshell, and so does the directory.
		(
			[ "$arch" = mips ] ||
				export ZORVA_BUILD=$ZORVA_BUILD/$arch
			run_on "$name" "$kernel" "$what" "$args" "$counts"
		) || status=$?
	else
		status=1
	fi
	[ ! -f "$counts" ] || read -r passed failed <"$counts"
	[ ! -f "$planted" ] || detectors+=$(<"$planted")
	# Tests that broke off before they were counted, or that had no kernel,
	# have failed all the same, and so have none at all, and planted faults
	# that nobody reported.
	if [ "$failed" -eq 0 ] &&
		{ [ "$status" -ne 0 ] || [ "$passed" -eq 0 ]; }; then
		failed=1
	fi
	say "$name: $passed passed, $failed failed, $((SECONDS - start)) s"
	printf '%s | %s | %s | %s | %d | %d | %s\n' "$name" "$arch" "$facts" \
		"$detectors" "$passed" "$failed" \
		"$(skips_of "$arch" "$what" "$counts")" \
		>"$built/kernel-$name.row"
}

# The table, as it stands in docs/porting.md.
table()
{
	cat <<END
| run | architecture | kernel | processors | preemption | compiler | detectors | passed | failed | skipped |
|---|---|---|---|---|---|---|---|---|---|
END
	sed -e 's/^/| /' -e 's/$/ |/' "$1"
}

# Replaces what stands between the marks; rows of runs that were not made now
# stay as they are. What is no run any more is left out.
update_docs()
{
	local page=docs/porting.md names

	names=$(matrix | awk -F '|' '{ printf "%s-%s-%s ", $1, $2, $3 }')
	{
		sed -n '/^<!-- kernels: begin -->$/,/^<!-- kernels: end -->$/p' \
			"$page" |
			sed -n 's/^| \([^ ]*-[^ ]*-[^ ]* | .*\) |$/\1/p'
		cat "$rows"
	} | awk -F ' [|] ' -v names="$names" '
		{ row[$1] = $0 }
		END {
			count = split(names, name, " ")
			for (i = 1; i <= count; i++)
				if (name[i] in row)
					print row[name[i]]
		}' >"$rows.all"
	table "$rows.all" >"$rows.table"
	sed -i -e "/^<!-- kernels: begin -->$/r $rows.table" \
		-e '/^<!-- kernels: begin -->$/,/^<!-- kernels: end -->$/{
			/^<!-- kernels/!d
		}' "$page"
}

chosen()
{
	matrix | awk -F '|' -v kernels=" $KERNELS " -v arches=" $ARCHES " \
		'index(kernels, " " $1 " ") && index(arches, " " $2 " ")'
}

# run_rows ROWS: on its own descriptor, as what runs here reads nothing of it
run_rows()
{
	local line arch name options args what detectors

	while IFS='|' read -r -u 7 line arch name options args what detectors
	do
		row "$line" "$arch" "$name" "$options" "$args" "$what" \
			"$detectors"
	done 7<<<"$1"
}

# The board's time goes by what it has done: it may wait for the others, whose
# time goes by the host's.
on_board=$(chosen | awk -F '|' '$2 == "mips"')
elsewhere=$(chosen | awk -F '|' '$2 != "mips"')
[ -n "$on_board$elsewhere" ] ||
	die "KERNELS=$KERNELS ARCHES=$ARCHES: no such run"
rm -f "$built"/kernel-*.row
if [ -n "$on_board" ] && [ -n "$elsewhere" ]; then
	{
		renice -n 10 "$BASHPID" >/dev/null
		run_rows "$on_board"
	} 2>&1 | sed -u 's/^/board: /' &
	run_rows "$elsewhere"
	wait
else
	run_rows "$on_board$elsewhere"
fi

while IFS='|' read -r line arch name _; do
	cat "$built/kernel-$line-$arch-$name.row"
done < <(chosen) >"$rows"
say "== all kernels"
table "$rows"
[ -z "$update" ] || update_docs
read -r all_passed all_failed < <(awk -F ' [|] ' '
	{ passed += $8; failed += $9 } END { print passed, failed }' "$rows")
[ -z "$all_counts" ] || echo "$all_passed $all_failed" >"$all_counts"
say "kernels: $all_passed passed, $all_failed failed, $SECONDS s"
[ "$all_failed" -eq 0 ]
