#!/bin/bash
# SPDX-License-Identifier: GPL-2.0
#
# Builds the board's kernel into the cache, once for each configuration, and
# leaves a tree that modules can be built against.
set -euo pipefail

here=$(cd "$(dirname "$0")" && pwd)
# shellcheck source=target/lib.sh
. "$here/../lib.sh"
# shellcheck source=target/debian.sh
. "$here/../debian.sh"
# shellcheck source=target/kconfig.sh
. "$here/../kconfig.sh"

SUITE=bullseye
PACKAGE=linux-source-5.10
VERSION=5.10.223-1
# Raised when this script leaves another tree for the same configuration.
LAYOUT=1

usage()
{
	cat <<END
usage: build.sh [--with FRAGMENT]... [--without-patches] [--print-dir]

  --with FRAGMENT    add a configuration fragment; it wins over config
  --without-patches  the stock kernel, without the firmware's exports
  --print-dir        print the build tree's path, and build nothing
END
}

fragments=("$here/config")
patches=("$here"/*.patch)
print_dir=
while [ $# -gt 0 ]; do
	case $1 in
	--with)
		[ -f "${2-}" ] || die "--with: no such file: ${2-}"
		fragments+=("$2")
		shift
		;;
	--without-patches) patches=() ;;
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

key()
{
	{
		wanted_options "${fragments[@]}"
		[ ${#patches[@]} -eq 0 ] || cat "${patches[@]}"
		echo "$VERSION $LAYOUT"
		"${CROSS_COMPILE}gcc" --version | head -n 1
	} | short_hash
}

need_cross_compiler
tree=$ZORVA_CACHE/kernel-$(key)
if [ -n "$print_dir" ]; then
	printf '%s\n' "$tree"
	exit
fi

source_deb=$ZORVA_CACHE/${PACKAGE}_${VERSION}_all.deb

fetch()
{
	local dir=$work/apt

	debian_archive "$dir" deb "$SUITE"
	(cd "$work" && apt-get -c "$dir/apt.conf" -q download \
		"$PACKAGE=$VERSION")
	mv "$work/${source_deb##*/}" "$source_deb"
	rm -rf "$dir"
}

unpack()
{
	mkdir -p "$work/linux"
	dpkg-deb --fsys-tarfile "$source_deb" |
		tar -xO "./usr/src/$PACKAGE.tar.xz" |
		tar -xJ -C "$work/linux" --strip-components=1
}

apply_patches()
{
	local patch

	for patch in "${patches[@]}"; do
		patch -d "$work/linux" -p1 --fuzz=0 <"$patch"
	done
}

kmake()
{
	make -C "$work/linux" ARCH=mips CROSS_COMPILE="$CROSS_COMPILE" \
		KBUILD_BUILD_USER=zorva KBUILD_BUILD_HOST=target \
		KBUILD_BUILD_TIMESTAMP='2024-08-01 00:00:00 UTC' "$@"
}

configure()
{
	write_fragment "${fragments[@]}" >"$work/wanted.config"
	kmake KCONFIG_ALLCONFIG="$work/wanted.config" allnoconfig
	check_options "$work/linux/.config" "${fragments[@]}"
}

compile()
{
	kmake -j"$(jobs)" vmlinux modules
	[ -s "$work/linux/Module.symvers" ]
	[ -x "$work/linux/usr/gen_init_cpio" ]
}

# Leaves what modules, their tests and a reader of an oops need: vmlinux, the
# headers, the build scripts, the core's sources, and the kernel's own modules
# where they were built.
prune()
{
	cd "$work/linux"
	find arch -mindepth 1 -maxdepth 1 -type d ! -name mips \
		-exec rm -rf {} +
	rm -rf Documentation sound samples crypto firmware block security virt
	find drivers -depth \( -type d -empty -o ! -type d ! -name '*.ko' \) \
		-delete
	find tools -mindepth 1 -maxdepth 1 ! -name include -exec rm -rf {} +
	find . -path ./scripts -prune -o -type f \
		\( -name '*.o' -o -name '*.a' -o -name '.*.cmd' \) \
		-exec rm -f {} +
	rm -f .tmp_* ./vmlinux.o
}

if [ ! -d "$tree" ]; then
	cache_lock kernel
fi
if [ ! -d "$tree" ]; then
	say "Building the board's kernel, once: $tree"
	work=$(cache_workdir kernel)
	# shellcheck disable=SC2034 # step looks at it
	step_failure="cannot fetch $PACKAGE $VERSION, which is needed once (${source_deb##*/} in $ZORVA_CACHE does as well): is there a network?"
	[ -f "$source_deb" ] || step "kernel: fetch $PACKAGE $VERSION" fetch
	step_failure=
	step "kernel: unpack" unpack
	[ ${#patches[@]} -eq 0 ] || step "kernel: patch" apply_patches
	step "kernel: configure" configure
	step "kernel: compile" compile
	step "kernel: prune the tree" prune
	mv "$work/linux" "$tree"
	rm -rf "$work"
fi
