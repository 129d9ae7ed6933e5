#!/bin/bash
# SPDX-License-Identifier: GPL-2.0
#
# Builds a static BusyBox for the board into the cache, from the source
# package of the Debian release that this machine runs.
set -euo pipefail

here=$(cd "$(dirname "$0")" && pwd)
# shellcheck source=target/lib.sh
. "$here/../lib.sh"
# shellcheck source=target/debian.sh
. "$here/../debian.sh"
# shellcheck source=target/kconfig.sh
. "$here/../kconfig.sh"

# Raised when this script makes something else of the same configuration.
LAYOUT=1

usage()
{
	cat <<END
usage: busybox/build.sh [--arch ARCH] [--print-dir]

  --arch ARCH  mips (the board, and the default), arm64, x86_64, or um
  --print-dir  print the result's directory, and build nothing
END
}

arch=mips
print_dir=
while [ $# -gt 0 ]; do
	case $1 in
	--arch)
		[ $# -ge 2 ] || die "--arch: which one?"
		arch=$2
		shift
		;;
	--print-dir) print_dir=1 ;;
	-h | --help)
		usage
		exit
		;;
	*)
		usage >&2
		exit 2
		;;
	esac
	shift
done
# User Mode Linux runs the programs of this machine.
case $arch in
mips) cross=$CROSS_COMPILE ;;
arm64) cross=aarch64-linux-gnu- ;;
x86_64 | um)
	arch=x86_64
	cross=
	;;
*) die "--arch $arch: there are mips, arm64, x86_64 and um" ;;
esac

need_cross_compiler "$cross"
# shellcheck source=/dev/null
codename=$(. /etc/os-release && echo "${VERSION_CODENAME:-stable}")
key=$({
	wanted_options "$here/config"
	echo "$codename $LAYOUT"
	# The board's own is told without a name.
	[ "$arch" = mips ] || echo "$arch"
	"${cross}gcc" --version | head -n 1
} | short_hash)
result=$ZORVA_CACHE/busybox-$key
if [ -n "$print_dir" ]; then
	printf '%s\n' "$result"
	exit
fi

bbmake()
{
	make -C "$work/busybox" ARCH="$arch" CROSS_COMPILE="$cross" \
		SKIP_STRIP=n "$@"
}

# This allnoconfig takes no fragment: merge it in, and settle the rest.
configure()
{
	local config=$work/busybox/.config

	bbmake allnoconfig
	wanted_options "$here/config" | cut -d ' ' -f 1 >"$work/names"
	grep -vwFf "$work/names" "$config" >"$work/others"
	{
		cat "$work/others"
		write_fragment "$here/config"
	} >"$config"
	bbmake oldconfig
	check_options "$config" "$here/config"
}

compile()
{
	bbmake -j"$(jobs)" busybox busybox.links
}

# The program, and the names under which it is called.
collect()
{
	mkdir "$work/result"
	cp "$work/busybox/busybox" "$work/busybox/busybox.links" \
		"$work/busybox/.config" "$work/result"
}

if [ ! -d "$result" ]; then
	cache_lock busybox
fi
if [ ! -d "$result" ]; then
	say "Building the board's BusyBox, once: $result"
	work=$(cache_workdir busybox)
	# shellcheck disable=SC2034 # step looks at it
	step_failure="cannot fetch BusyBox's source package, which is needed once: is there a network?"
	step "busybox: fetch" debian_source "$work" busybox
	step_failure=
	step "busybox: configure" configure
	step "busybox: compile" compile
	step "busybox: collect" collect
	mv "$work/result" "$result"
	rm -rf "$work"
fi
