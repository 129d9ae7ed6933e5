#!/bin/bash
# SPDX-License-Identifier: GPL-2.0
#
# Debian's own kernel for this machine's release, x86_64, unpacked into the
# cache: its headers, which modules are built against, and its image. Nothing
# is installed, and nothing compiled.
set -euo pipefail

here=$(cd "$(dirname "$0")" && pwd)
# shellcheck source=target/lib.sh
. "$here/../lib.sh"
# shellcheck source=target/debian.sh
. "$here/../debian.sh"

# Raised when this script leaves another tree of the same packages.
LAYOUT=1

usage()
{
	cat <<END
usage: packaged.sh [--update] [--print-dir]

  --update     look whether Debian has a later version
  --print-dir  print the build tree's path, and fetch nothing
END
}

update=
print_dir=
while [ $# -gt 0 ]; do
	case $1 in
	--update) update=1 ;;
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

# shellcheck source=/dev/null
codename=$(. /etc/os-release && echo "${VERSION_CODENAME:-stable}")
link=$ZORVA_CACHE/packaged-$codename-$LAYOUT

if [ -n "$print_dir" ]; then
	[ -L "$link" ] || die "not fetched yet: run packaged.sh"
	readlink -f "$link"
	exit
fi

# What a package needs of those that carry its version, by their names.
needs_of()
{
	apt-cache -c "$work/apt/apt.conf" depends --no-recommends \
		--no-suggests --no-conflicts --no-breaks --no-replaces \
		--no-enhances "$1" |
		awk -v name="$2" '$1 == "Depends:" && $2 ~ name && !n++ {
			print $2
		}'
}

fetch()
{
	local image headers common kbuild

	debian_archive "$work/apt" deb "$codename"
	image=$(needs_of linux-image-amd64 '^linux-image-')
	headers=$(needs_of linux-headers-amd64 '^linux-headers-')
	common=$(needs_of "$headers" '-common$')
	kbuild=$(needs_of "$headers" '^linux-kbuild-')
	echo "$image $headers $common $kbuild"
	cd "$work"
	apt-get -c "$work/apt/apt.conf" -q download \
		"$image" "$headers" "$common" "$kbuild"
}

# The makefile names the place where the headers would be installed; this one
# names where they are.
unpack()
{
	local package root=$work/root final tree

	cd "$work"
	for package in linux-headers-*.deb linux-kbuild-*.deb; do
		dpkg-deb -x "$package" "$root"
	done
	tree=$(echo "$root"/usr/src/linux-headers-*-amd64)
	dpkg-deb --fsys-tarfile linux-image-*.deb | tar -x -C "$root" \
		--wildcards './boot/vmlinuz-*' '*/char/ttyprintk.ko*' \
		'*/net/dummy.ko*'
	mv "${root:?}"/boot/vmlinuz-* "$tree/vmlinuz"
	mkdir "$tree/kernel-modules"
	find "$root/lib" -name '*.ko.xz' -exec xz -d {} +
	find "$root/lib" -name '*.ko' -exec mv -t "$tree/kernel-modules" {} +
	cat >"$tree/.zorva-kernel" <<-END
	line=packaged
	version=$(dpkg-deb -f linux-image-*.deb Version)
	arch=x86_64
	cross=
	clang=
	image=vmlinuz
	END
	final=$ZORVA_CACHE/packaged-$(short_hash <"$tree/.zorva-kernel")
	sed -i "s,/usr/src/,$final/usr/src/,g" "$tree/Makefile"
	rm -rf "$final" "${root:?}/boot" "${root:?}/lib"
	mv "$root" "$final"
	ln -sfn "$final/usr/src/${tree##*/}" "$link"
}

if [ ! -L "$link" ] || [ -n "$update" ]; then
	cache_lock packaged
fi
if [ ! -L "$link" ] || [ -n "$update" ]; then
	say "Fetching Debian's own kernel, once: $link"
	work=$(cache_workdir packaged)
	step "packaged kernel: fetch" fetch
	step "packaged kernel: unpack" unpack
	rm -rf "$work"
fi
