# SPDX-License-Identifier: GPL-2.0
# shellcheck shell=bash
#
# What the board's scripts share: where things are, how a long command is
# shown, and how results reach the cache. Sourced, never run.

ZORVA_ROOT=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
# What is built for another machine than the board has a directory of its own,
# in build/. That of another checkout, whose script has called this one, is not
# this one's.
[[ ${ZORVA_BUILD-}/ = "$ZORVA_ROOT"/build/* ]] || ZORVA_BUILD=$ZORVA_ROOT/build
ZORVA_LOGS=$ZORVA_BUILD/logs
ZORVA_CACHE=${ZORVA_CACHE:-${XDG_CACHE_HOME:-$HOME/.cache}/zorva}
[[ $ZORVA_CACHE = /* ]] || ZORVA_CACHE=$PWD/$ZORVA_CACHE
CROSS_COMPILE=${CROSS_COMPILE:-mips-linux-gnu-}
export ZORVA_BUILD ZORVA_CACHE CROSS_COMPILE

# A build started from make must not join that make's job server, nor take
# variables from its command line.
unset MAKEFLAGS MFLAGS MAKELEVEL MAKEOVERRIDES

say()
{
	printf '%s\n' "$*" >&2
}

die()
{
	say "${0##*/}: $*"
	exit 1
}

# need_cross_compiler PREFIX: fails unless there are the compilers of that name,
# which is the value of CROSS_COMPILE, or that of another architecture.
need_cross_compiler()
{
	local prefix=$1 compiler

	for compiler in gcc g++; do
		compiler=$prefix$compiler
		command -v "$compiler" >/dev/null && continue
		[ "$prefix" != mips-linux-gnu- ] ||
			die "no $compiler: run target/install-deps.sh target"
		[ "$prefix" = "$CROSS_COMPILE" ] ||
			die "no $compiler: run target/install-deps.sh kernels"
		die "no $compiler in PATH: CROSS_COMPILE=$CROSS_COMPILE" \
			"is the prefix of no compiler here"
	done
}

# The kernel's make cannot work in such a directory, and neither can all of
# the emulator's options name what is in it.
for dir in "$ZORVA_ROOT" "$ZORVA_CACHE" "${KERNEL_BUILD-}"; do
	case $dir in
	*[[:space:]:,\;=\#%\$\*\?\&\|\<\>\(\)\'\"\\]*)
		die "'$dir': cannot work in a directory with blanks," \
			"colons or other punctuation in its path"
		;;
	esac
done
unset dir

# The files of the checkout whose paths match a pattern, or that are below it;
# without a pattern, all. They are those that git knows or would take; where it
# cannot tell, or is not there, all but what is built.
list_sources()
(
	cd "$ZORVA_ROOT"
	if [ ! -e .git ] || ! files=$(git ls-files -co --exclude-standard \
		-- "$@" 2>/dev/null); then
		files=$(find . \( -path ./build -o -path ./.git \) -prune -o \
			-type f -print |
			sed 's,^\./,,')
	fi
	while read -r file; do
		[ -f "$file" ] || continue
		[ $# -gt 0 ] || printf '%s\n' "$file"
		for pattern in "$@"; do
			# shellcheck disable=SC2053 # it is a pattern
			if [[ $file == $pattern || $file == $pattern/* ]]; then
				printf '%s\n' "$file"
				break
			fi
		done
	done <<<"$files"
)

# sync_files FROM TO
#
# Makes TO hold the files of FROM that standard input names. Only what differs
# is copied, and then counts as changed now: an older file put back in place
# must be compiled as well. What an earlier list had and this one has not goes;
# what was built there stays.
sync_files()
{
	local from=$1 to=$2 file

	LC_ALL=C sort >"$to/.files.new"
	if [ -f "$to/.files" ]; then
		LC_ALL=C comm -23 "$to/.files" "$to/.files.new" |
			(cd "$to" && xargs -r -d '\n' rm -f --)
	fi
	hash_files "$from" <"$to/.files.new" >"$to/.hashes.from"
	hash_files "$to" <"$to/.files.new" >"$to/.hashes.to"
	LC_ALL=C comm -23 "$to/.hashes.from" "$to/.hashes.to" | cut -c 35- |
		while read -r file; do
			mkdir -p "$(dirname "$to/$file")"
			cp --preserve=mode "$from/$file" "$to/$file"
			echo "changed: $file"
		done
	mv "$to/.files.new" "$to/.files"
	rm -f "$to/.hashes.from" "$to/.hashes.to"
}

# The hashes of the files of a directory that standard input names; those that
# are not there have none.
hash_files()
{
	(cd "$1" && xargs -r -d '\n' md5sum --) 2>/dev/null | LC_ALL=C sort ||
		true
}

# Shows that a command is still at work: on a terminal one line that counts,
# elsewhere a line now and then, so that a log stays short.
step_ticker()
{
	local text=$1 parent=$2 start=$SECONDS pause=15 sleeper=

	# Who reads this script's output to its end must not wait for a sleep
	# that has outlived it.
	trap 'kill $sleeper 2>/dev/null; exit' TERM
	[ ! -t 2 ] || pause=2
	while kill -0 "$parent" 2>/dev/null; do
		if [ -t 2 ]; then
			printf '\r  %s ... %d s ' "$text" \
				$((SECONDS - start)) >&2
		elif [ "$SECONDS" -gt "$start" ]; then
			say "  $text ... $((SECONDS - start)) s"
		fi
		sleep "$pause" >/dev/null 2>&1 &
		sleeper=$!
		wait "$sleeper"
	done
}

# step TEXT COMMAND...
#
# Runs a command or a function with its output in a log of its own, and ends
# the script when it fails, with the log's last lines or, when step_failure is
# set, with that as the one line that says why. Not for use in a condition: the shell would then
# ignore failures within a function.
step()
{
	local text=$1 start=$SECONDS log ticker status
	shift

	mkdir -p "$ZORVA_LOGS"
	log=$ZORVA_LOGS/$(tr -cs '[:alnum:].\n' '-' <<<"$text").log

	[ -t 2 ] || say "  $text"
	# The ticker must not hold the locks.
	step_ticker "$text" $$ 8>&- 9>&- &
	ticker=$!

	# The command stays in the foreground, where Ctrl-C reaches it.
	set +e
	(
		set -euo pipefail
		"$@"
	) >"$log" 2>&1 </dev/null
	status=$?
	set -e

	kill "$ticker" 2>/dev/null || true
	wait "$ticker" 2>/dev/null || true
	[ -t 2 ] && printf '\r\033[K' >&2

	if [ "$status" -ne 0 ] && [ -n "${step_failure-}" ]; then
		say "${0##*/}: $step_failure; log: $log"
		exit "$status"
	fi
	if [ "$status" -ne 0 ]; then
		say "  $text: FAILED after $((SECONDS - start)) s (status $status)"
		say "---- last lines of $log"
		tail -n 40 "$log" >&2
		say "---- the whole log: $log"
		exit "$status"
	fi
	say "  $text: done, $((SECONDS - start)) s"
}

# cache_lock NAME
#
# Holds the named lock of the cache until the script ends, so that two
# checkouts never make the same thing at once. Whoever waited finds it made.
cache_lock()
{
	mkdir -p "$ZORVA_CACHE"
	exec 9>"$ZORVA_CACHE/.lock-$1"
	if ! flock -n 9; then
		say "  waiting: another build holds $ZORVA_CACHE/.lock-$1"
		flock 9
	fi
}

# build_lock
#
# Holds build/ until the script ends: what one run has built there must not be
# replaced, by a build for another kernel at that, before the run has used it.
# The scripts that the holder calls need not take the lock again.
build_lock()
{
	[ "${ZORVA_BUILD_LOCKED-}" != "$ZORVA_BUILD" ] || return 0
	mkdir -p "$ZORVA_BUILD"
	exec 8>"$ZORVA_BUILD/.lock"
	if ! flock -n 8; then
		say "  waiting: another run uses $ZORVA_BUILD/.lock"
		flock 8
	fi
	export ZORVA_BUILD_LOCKED=$ZORVA_BUILD
}

# Makes an empty work directory in the cache, under the lock's protection. A
# result leaves it by one rename, so what an interrupted build leaves behind
# never counts as finished.
cache_workdir()
{
	local dir=$ZORVA_CACHE/.work-$1

	rm -rf "$dir"
	mkdir -p "$dir"
	printf '%s\n' "$dir"
}

# The hash of standard input, short enough for a directory's name.
short_hash()
{
	sha256sum | cut -c1-12
}

# modules_in_order DIR
#
# The modules that were last built there. Since 6.2 the kernel's list has their
# objects, and since 6.13 relative to the directory.
modules_in_order()
{
	sed -e 's/\.o$/.ko/' -e "/^\//!s,^\(\./\)*,$1/," "$1/modules.order"
}

# kernel_facts TREE
#
# Says what a kernel tree was built for, and with: sets line, version, arch,
# cross (the prefix of the compiler), clang (what make's LLVM= is, or empty) and
# image (what is booted, in the tree). A tree that does not say is one for the
# board.
# shellcheck disable=SC2034 # used where this is sourced
kernel_facts()
{
	line=5.10 version='' arch=mips cross=$CROSS_COMPILE clang=''
	image=vmlinux
	# shellcheck source=/dev/null
	[ ! -f "$1/.zorva-kernel" ] || . "$1/.zorva-kernel"
}

jobs()
{
	nproc 2>/dev/null || echo 1
}
