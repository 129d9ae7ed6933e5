#!/bin/bash
# SPDX-License-Identifier: GPL-2.0
#
# Builds modules of anybody's against this build of zorva, in a copy of their
# directory: nothing is written into it. target/modules.sh has made zorva.
set -euo pipefail

# shellcheck source=target/lib.sh
. "$(dirname "$0")/lib.sh"

usage()
{
	cat <<END
usage: firmware.sh [--check] DIR...

  DIR      a directory with a Kbuild file; "obj-m := poe.o" in it is enough.
           One may use what those before it export
  --check  look at the directories only

Leaves the paths of the modules in build/firmware/modules, one a line and in
the order in which they can be loaded, and in build/firmware/originals each copy
with the directory that it is one of.

Environment: KERNEL_BUILD (the kernel tree), ZORVA_COMPONENTS, CROSS_COMPILE.
END
}

check=
case ${1-} in
-h | --help)
	usage
	exit
	;;
--check)
	check=1
	shift
	;;
esac
if [ $# -eq 0 ] || [[ $1 == -* ]]; then
	usage >&2
	exit 2
fi

# kbuild_file DIR: the name of what tells make about a directory's modules
kbuild_file()
{
	if [ -f "$1/Kbuild" ]; then
		echo Kbuild
	elif grep -qs '^[[:space:]]*obj-m' "$1/Makefile"; then
		echo Makefile
	fi
}

for dir in "$@"; do
	[ -d "$dir" ] || die "$dir: no such directory"
	[ -n "$(kbuild_file "$dir")" ] ||
		die "$dir: has no Kbuild file: one line, obj-m := NAME.o, is enough"
done
[ -z "$check" ] || exit 0

kernel=${KERNEL_BUILD:-$("$ZORVA_ROOT/target/kernel/build.sh" --print-dir)}
kernel_facts "$kernel"
zorva=$ZORVA_BUILD/target
copies=$ZORVA_BUILD/firmware
[ -f "$zorva/plat/linux/zorva/Module.symvers" ] ||
	die "zorva is not built: run make module"

build_lock

# Objects made against another kernel would pass for current ones.
if [ "$(cat "$copies/.kernel" 2>/dev/null)" != "$kernel" ]; then
	rm -rf "$copies"
fi
mkdir -p "$copies"
printf '%s\n' "$kernel" >"$copies/.kernel"

# What is built is not copied, nor what an editor or git keeps.
list_files()
{
	(cd "$1" && find -L . -name .git -prune -o -type f \
		! -name '*.ko' ! -name '*.o' ! -name '*.mod' ! -name '*.mod.c' \
		! -name '.*.cmd' ! -name '*.a' ! -name '*~' \
		! -name modules.order ! -name Module.symvers -print) |
		sed 's,^\./,,' | LC_ALL=C sort
}

# A Kbuild file may name what lies beside its directory, "$(src)/../include":
# it finds it beside the copy as well.
link_neighbours()
{
	local from=$1 to=$2 file

	find "$to" -mindepth 1 -maxdepth 1 -type l -delete
	for file in "${from%/*}"/*; do
		if [ "$file" != "$from" ] && [ ! -e "$to/${file##*/}" ]; then
			ln -s "$file" "$to/${file##*/}"
		fi
	done
}

# The copy is named in what make and the compiler say; nobody knows it.
name_original()
{
	sed -u -e "s|$2/Kbuild.own|$1/Kbuild|g" -e "s|$2/|$1/|g" -e "s|$2|$1|g"
}

build()
{
	local from=$1 copy=$2 file own=Makefile

	list_files "$from" | sync_files "$from" "$copy" || return
	file=$(kbuild_file "$from")
	if [ "$file" = Kbuild ]; then
		own=Kbuild.own
		mv "$copy/Kbuild" "$copy/$own"
	fi
	# Once more is no more: a Kbuild file may have this line already.
	printf '%s\n' "include \$(src)/$own" \
		"include \$(ZORVA)/plat/linux/zorva.mk" >"$copy/Kbuild"
	make -C "$kernel" M="$copy" ARCH="$arch" CROSS_COMPILE="$cross" \
		${clang:+LLVM=$clang} -j"$(jobs)" KCFLAGS=-g ZORVA="$zorva" \
		${ZORVA_COMPONENTS:+ZORVA_COMPONENTS="$ZORVA_COMPONENTS"} \
		KBUILD_EXTRA_SYMBOLS="${symbols[*]}" modules 2>&1 |
		name_original "$from" "$copy"
}

symbols=("$zorva/plat/linux/zorva/Module.symvers")
modules=()
mkdir -p "$ZORVA_LOGS"
: >"$copies/originals"
for dir in "$@"; do
	dir=$(cd "$dir" && pwd)
	name=$(tr -c '[:alnum:]._\n-' - <<<"${dir##*/}")
	# Each has a place of its own, so that no copy is another's neighbour.
	parent=$copies/$(short_hash <<<"$dir")
	copy=$parent/$name
	log=$ZORVA_LOGS/firmware-$name.log
	mkdir -p "$copy"
	link_neighbours "$dir" "$parent"

	start=$SECONDS
	say "  firmware: $name"
	if ! build "$dir" "$copy" >"$log" 2>&1; then
		grep -E ': (fatal )?error: |\*\*\*|^ERROR: |^/[^ ]*\.o: ' "$log" |
			head -n 10 >&2 || tail -n 10 "$log" >&2
		die "$dir does not build; log: $log"
	fi
	grep -A 3 -E '(: warning: |^WARNING: )' "$log" >&2 || true
	[ -s "$copy/modules.order" ] ||
		die "$dir: its Kbuild file names no module; log: $log"
	say "  firmware: $name: done, $((SECONDS - start)) s"
	mapfile -t -O ${#modules[@]} modules < <(modules_in_order "$copy")
	symbols+=("$copy/Module.symvers")
	printf '%s %s\n' "$copy" "$dir" >>"$copies/originals"
done
printf '%s\n' "${modules[@]}" >"$copies/modules"
