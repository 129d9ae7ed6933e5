# SPDX-License-Identifier: GPL-2.0
# shellcheck shell=bash
#
# What both tests of what is installed share. Sourced, after target/lib.sh.

passed=0
failed=0
: "${work:=}"

# not COMMAND...: a command that has to fail. "!" would not end a script.
not()
{
	if "$@"; then
		echo "this should have failed: $*"
		return 1
	fi
}

# The lines of standard input, if any, are what is wrong.
none()
{
	not grep .
}

# check TEXT COMMAND...
check()
{
	local text=$1 start=$SECONDS status=0
	shift

	# A condition would make the shell ignore failures inside.
	set +e
	(
		set -e
		"$@"
	) >"$work/log" 2>&1
	status=$?
	set -e
	if [ "$status" -eq 0 ]; then
		say "ok: $text ($((SECONDS - start)) s)"
		passed=$((passed + 1))
	else
		say "FAILED: $text"
		tail -n 40 "$work/log" | sed 's/^/        /' >&2
		failed=$((failed + 1))
	fi
}

# sum_up NAME [COUNTS]: the last line, and the status of the test
sum_up()
{
	say "$1: $passed passed, $failed failed"
	[ -z "${2-}" ] || echo "$passed $failed" >"$2"
	[ "$failed" -eq 0 ]
}

# counts_file ARGUMENT...: sets "counts", or shows how the test is used
counts_file()
{
	case ${1-} in
	-*)
		usage
		[ "$1" = -h ] || [ "$1" = --help ] || exit 2
		exit
		;;
	esac
	# shellcheck disable=SC2034 # for who sources this
	counts=${1:+$(realpath -m "$1")}
}

# list_tree DIR: every file, with its kind, rights, owner and what it says.
# Left out are file systems of the kernel's, logs, and what the package manager
# and the index of manual pages keep of their own work.
list_tree()
(
	cd "$1"
	find . -mindepth 1 \( -path ./proc -o -path ./sys -o -path ./dev -o \
		-path ./tmp -o -path ./var/log -o -path ./var/cache/apt -o \
		-path ./var/cache/man -o \
		-path ./var/lib/apt \) -prune -o \
		-printf '%P\t%y %m %U:%G %l\n' | LC_ALL=C sort
	find . \( -path ./proc -o -path ./sys -o -path ./dev -o \
		-path ./tmp -o -path ./var/log -o -path ./var/cache -o \
		-path ./var/lib/dpkg -o -path ./var/lib/apt \) -prune -o \
		-type f -print0 | LC_ALL=C sort -z | xargs -r -0 sha256sum
)

# nothing_left DIR BEFORE: what list_tree says is what it said before.
nothing_left()
{
	list_tree "$1" | diff "$2" -
}

# left_is_seen DIR BEFORE: what is left behind is noticed.
left_is_seen()
{
	local file=usr/lib/left-behind

	mkdir -p "$1/usr/lib"
	: >"$1/$file"
	not nothing_left "$1" "$2" >"$work/seen"
	rm "$1/$file"
	grep "^> $file" "$work/seen"
}
