#!/bin/bash
# SPDX-License-Identifier: GPL-2.0
#
# What is said when something that was given is wrong, or missing: in one line
# that names it, and before anything is built. No board is started.
set -euo pipefail

usage()
{
	cat <<END
usage: messages.sh [COUNTS]

  COUNTS  a file for "PASSED FAILED"
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
# shellcheck source=tests/kit/check.sh
. "$(dirname "$0")/check.sh"
cd "$ZORVA_ROOT"

# --- Lists of components
def=plat/linux/include/zorva/components.def
components=plat/linux/scripts/components.sh

says "the list that comes with the module is good, and has 58 rows" 0 \
	'^57 LAST "LAST"$' sh "$components" rows gcc "$def"
cp "$work/said" "$work/rows"
says "a list does not differ from itself" 0 '^same$' sh -c \
	"sh $components compare gcc $def $work/rows && echo same"

# The lines of the rows.
first=$(grep -n '^ZORVA_COMPONENT(0,' "$def" | cut -d : -f 1)
poe=$((first + 14))

# wrong TEXT EDIT PATTERN [LINE]: a list with one edit is refused by this line
wrong()
{
	sed "$2" "$def" >"$work/my.def"
	says_only "a list: $1" "^$work/my\\.def:${4-$poe}:?([0-9]+:)? $3" \
		sh "$components" check gcc "$work/my.def"
}
wrong "an ID out of order" 's/(14, POE/(15, POE/' \
	'row 14 \(POE\) has the ID 15: '
wrong "a row is missing" '/(20, GVRP/d' 'row 20 \(STP\) has the ID 21: ' "$((first + 20))"
wrong "the last row is missing" '/(57, LAST/d' 'has 57 rows; ' ''
# shellcheck disable=SC2016 # the last line
wrong "a row too many" '$aZORVA_COMPONENT(58, MORE, "More")' \
	'row 58 \(MORE\) is too many' "$((first + 58))"
wrong "a long name" 's/POE, /POEPOEPO, /' \
	'row 14: the name POEPOEPO is not 1 to 7 '
wrong "a name in small letters" 's/POE, /Poe, /' \
	'row 14: the name Poe is not 1 to 7 '
wrong "a name twice" 's/(15, EEE/(15, POE/' \
	'row 15 has the name POE, as row 14 has' "$((first + 15))"
wrong "no description" 's/POE, "[^"]*"/POE/' \
	'row 14 \(POE\) has no description'
wrong "another row 0" 's/FIRST, "First"/FIRST, "first"/' \
	'row 0 has to be FIRST, "First"' "$((first + 0))"
wrong "another row 9" 's/ZORVA, "ZORVA"/ZORVA, "ZORVA", "SUB"/' \
	'row 9 has to be ZORVA, "ZORVA", without' "$((first + 9))"
wrong "another row 57" 's/(57, LAST/(57, LATE/' 'row 57 has to be LAST' "$((first + 57))"
wrong "33 sub-components" \
	"s/\"Power over Ethernet\"/&$(printf ', "S%d"' {1..33})/" \
	'row 14 \(POE\) has 33 sub-components'
wrong "a misspelt row" 's/^ZORVA_COMPONENT(14/ZORVA_COMPONET(14/' \
	'"ZORVA_COMPONET\(14, POE, .* is no row'
wrong "an open parenthesis" 's/(57, LAST, "LAST")/(57, LAST, "LAST"/' \
	"error: unterminated" "$((first + 57))"
sed 's/(14, POE,/(14, PWR,/' "$def" >"$work/my.def"
says_only "a list with another name differs in its row" \
	"my\\.def:$poe: row 14 is PWR, and POE in the list that this zorva" \
	sh "$components" compare gcc "$work/my.def" "$work/rows"
sed 's/Power over/Energy over/' "$def" >"$work/my.def"
says_only "a list with another text differs in its row" \
	"my\\.def:$poe: row 14 \\(POE\\) is \"Energy over Ethernet\", and" \
	sh "$components" compare gcc "$work/my.def" "$work/rows"

says "make names a list that is not there" 2 \
	"ZORVA_COMPONENTS=$work/none.def: no such file" \
	make module ZORVA_COMPONENTS="$work/none.def"
did_not_say "... before it builds anything" 'modules: |kernel: '
sed 's/(14, POE/(15, POE/' "$def" >"$work/my.def"
says_only "a wrong list is refused before anything is built" \
	"my\\.def:$poe: row 14 \\(POE\\)" \
	env ZORVA_COMPONENTS="$work/my.def" target/board.sh check

# --- Compilers, the emulator and its options
says_only "a CROSS_COMPILE without a compiler" \
	'no foo-gcc in PATH: CROSS_COMPILE=foo- ' \
	env CROSS_COMPILE=foo- target/board.sh check
did_not_say "... has no advice that cannot help" install-deps
says_only "the kernel's build says the same" 'no foo-gcc in PATH' \
	env CROSS_COMPILE=foo- target/kernel/build.sh
says_only "a word of BOARD_ARGS that is no option" \
	'^boot\.sh: --bogus: no such option \(BOARD_ARGS=--bogus\)' \
	env BOARD_ARGS=--bogus target/board.sh check

# All programs but the emulator.
mkdir "$work/bin"
for dir in /usr/sbin /usr/bin /sbin /bin; do
	ln -sf "$dir"/* "$work/bin"
done
rm -f "$work/bin/qemu-system-mips"
says_only "a missing emulator is named first" \
	'no qemu-system-mips in PATH' \
	env PATH="$work/bin" target/board.sh check

# An emulator that only says what it is told: boot.sh makes of it what it
# would of a board.
cat >"$work/bin/qemu-system-mips" <<'END'
#!/bin/bash
log=$(tr ' ' '\n' <<<"$*" | sed -n 's/.*logfile=//p')
cat "$BOARD_SAYS" >"$log"
exec sleep "$BOARD_SLEEPS"
END
chmod +x "$work/bin/qemu-system-mips"
touch "$work/vmlinux"

# board TEXT STATUS PATTERN SECONDS LINE...: what boot.sh says about a board
# that says these lines
board()
{
	local text=$1 status=$2 pattern=$3 sleeps=$4
	shift 4

	printf '%s\n' "$@" >"$work/console"
	says "$text" "$status" "$pattern" env PATH="$work/bin" \
		BOARD_SAYS="$work/console" BOARD_SLEEPS="$sleeps" \
		target/boot.sh --kernel "$work/vmlinux" \
		--initrd "$work/vmlinux" --log "$work/log" --timeout "${limit:-30}"
}
limit=1 board "a board at the limit names BOARD_TIMEOUT and the log" 124 \
	"limit of 1 s \\(BOARD_TIMEOUT=1\\); console: $work/log\$" 60 hello
board "a scenario's status is the board's" 7 \
	'the scenario failed with status 7' 0 'scenario: exit status 7'
board "a board that says nothing of its scenario" 1 \
	"ended without the scenario's status" 0 hello
board "an oops is named with its module" 3 \
	"came to harm in poe, poe_init\\+0x8/0x14; console: $work/log\$" 0 \
	'[    8.1] Oops[#1]:' \
	'[    8.1] epc   : c000f008 poe_init+0x8/0x14 [poe]' \
	'scenario: exit status 0'
# race FUNCTION...: a report of KCSAN
race()
{
	printf '[    8.1] %s\n' \
		'BUG: KCSAN: data-race in hrtimer_active / run_timers' '' \
		'write to 0xffff88801f41c458 of 8 bytes by interrupt on cpu 0:' \
		"$@" '' 'Reported by Kernel Concurrency Sanitizer on:'
}
board "a race in which a module has a part" 3 'the kernel came to harm' 0 \
	"$(race ' hrtimer_active+0x8/0x14')" \
	"$(race ' poe_init+0x8/0x14 [poe]')" 'scenario: exit status 0'
board "a race of the kernel's own" 0 'scenario passed' 0 \
	"$(race ' hrtimer_active+0x8/0x14')" 'scenario: exit status 0'
board "a scenario that passes" 0 'scenario passed' 0 'scenario: exit status 0'

# --- The unit tests, with a compiler that has nothing to do
rm -f "$work/bin/cmake"
printf '#!/bin/sh\n' >"$work/bin/cmake"
chmod +x "$work/bin/cmake"
says "make unit says that it compiles" 0 '^  unit: compile$' \
	env PATH="$work/bin" tests/unit/run.sh --build-only
said_too "... and when that is done" '^  unit: compile: done, '

# --- Modules of one's own
mkdir "$work/empty"
says_only "a directory without a Kbuild file" \
	"^firmware\\.sh: $work/empty: has no Kbuild file" \
	env M="$work/empty" target/board.sh check
says_only "no directory" "^firmware\\.sh: $work/none: no such directory" \
	env M="$work/none" target/board.sh check
says_only "a scenario that is not there" \
	"SCENARIO=$work/none: no such file" \
	env SCENARIO="$work/none" target/board.sh check
says_only "a file without a place" \
	"FILES: $work/rows: say where" \
	env FILES="$work/rows" target/board.sh check
says_only "a file that is not there" \
	"FILES: $work/none: no such file" \
	env FILES="$work/none=/etc/none" target/board.sh check
says_only "a folder that is not there" "$work/none: no such folder" \
	env SHARE="$work/none" target/board.sh check

# --- No network, and nothing in the cache
cat >"$work/apt.conf" <<'END'
Acquire::http::Proxy "http://127.0.0.1:9";
Acquire::https::Proxy "http://127.0.0.1:9";
Acquire::Retries "0";
END
says_only "the kernel's sources without a network" \
	"cannot fetch linux-source-5.10 .* network\\?; log: " \
	env APT_CONFIG="$work/apt.conf" ZORVA_CACHE="$work/cache" \
	target/kernel/build.sh
says_only "BusyBox without a network" \
	"cannot fetch BusyBox's source .* network\\?; log: " \
	env APT_CONFIG="$work/apt.conf" ZORVA_CACHE="$work/cache" \
	target/busybox/build.sh
rm -f "$work"/bin/{dpkg-query,apt-get,sudo}
printf '#!/bin/sh\nexit 1\n' >"$work/bin/dpkg-query"
printf '#!/bin/sh\necho noise\necho more\nexit 100\n' >"$work/bin/apt-get"
cat >"$work/bin/sudo" <<'END'
#!/bin/sh
[ "$1" != -n ] || shift
[ "$1" = -v ] || exec "$@"
END
chmod +x "$work"/bin/{dpkg-query,apt-get,sudo}
says_only "Debian's packages without a network" \
	'cannot fetch the Debian packages gnuplot-nox: is there a network\?; log: ' \
	env PATH="$work/bin" target/install-deps.sh bench

conclude messages "$counts"
