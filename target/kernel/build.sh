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

# Raised when this script leaves another tree for the same configuration.
LAYOUT=1

usage()
{
	cat <<END
usage: build.sh [options]

  --line LINE        the kernel: 5.10 (the firmware's, and the default), 6.1,
                     6.12, or newest: what Debian has beyond its releases
  --arch ARCH        mips (the board, and the default), um (a program of this
                     machine), arm64 or x86_64 (four processors, preemption)
  --clang            compiled by clang, not by gcc
  --with FRAGMENT    add a configuration fragment; it wins over the others
  --without-patches  the stock kernel, without the firmware's exports
  --update           look whether Debian has a later version of the line
  --print-dir        print the build tree's path, and build nothing

Lines but 5.10 move on in Debian's archive: the version that was fetched first
stays, until --update.
END
}

line=5.10
arch=mips
clang=
update=
with=()
patched=1
print_dir=
while [ $# -gt 0 ]; do
	case $1 in
	--line | --arch)
		if [ $# -lt 2 ]; then
			usage >&2
			exit 2
		fi
		declare "${1#--}=$2"
		shift
		;;
	--clang) clang=-19 ;;
	--with)
		[ -f "${2-}" ] || die "--with: no such file: ${2-}"
		with+=("$2")
		shift
		;;
	--without-patches) patched= ;;
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

# Where a line comes from. Only the first suite is frozen.
case $line in
5.10) suite=bullseye ;;
6.1) suite=bookworm ;;
6.12) suite=trixie ;;
newest) suite=trixie-backports ;;
*) die "--line $line: there are 5.10, 6.1, 6.12 and newest" ;;
esac
patches=("$here/sched-export-6.11.patch")
case $line in
5.10 | 6.1) patches=("$here/sched-export-5.10.patch") ;;
esac
[ "$arch" != um ] || patches+=("$here/um-alarm.patch")

# The names that the kernel's makefiles have for the architecture and for what
# is booted.
fragments=("$here/config")
[ "$line" = 5.10 ] || fragments+=("$here/later.config")
[ "$line" != newest ] || fragments+=("$here/newest.config")
case $arch in
mips)
	image=vmlinux
	srcarch=mips
	cross=$CROSS_COMPILE
	fragments+=("$here/mips.config")
	case $line in
	5.10) fragments+=("$here/mips-folder.config") ;;
	newest) fragments+=("$here/mips-7.config") ;;
	esac
	;;
um)
	image=linux
	srcarch=um
	cross=
	;;
arm64)
	image=arch/arm64/boot/Image
	srcarch=arm64
	cross=aarch64-linux-gnu-
	;;
x86_64)
	image=arch/x86/boot/bzImage
	srcarch=x86
	cross=
	;;
*) die "--arch $arch: there are mips, um, arm64 and x86_64" ;;
esac
[ "$arch" = mips ] || fragments+=("$here/$arch.config")
fragments+=("${with[@]}")

# The release's own clang is too old: calls through pointers are checked from 16
# on, and the newest kernels want 17.
if [ -n "$clang" ]; then
	compiler=clang$clang
	command -v "clang++$clang" "ld.lld$clang" "llvm-ar$clang" >/dev/null ||
		die "no clang$clang: run target/install-deps.sh kernels"
else
	compiler=${cross}gcc
	need_cross_compiler "$cross"
fi

# What was last fetched of a line: "PACKAGE VERSION".
if [ "$line" = 5.10 ]; then
	source_name='linux-source-5.10 5.10.223-1'
else
	source_name=$(cat "$ZORVA_CACHE/source-$line" 2>/dev/null) || true
fi

fetch()
{
	local dir=$work/apt package version

	debian_archive "$dir" deb "$suite"
	if [ "$line" = 5.10 ]; then
		read -r package version <<<"$source_name"
	else
		package=linux-source-$line
		[ "$line" != newest ] ||
			package=$(apt-cache -c "$dir/apt.conf" search \
				--names-only '^linux-source-[0-9.]+$' |
				awk '{ print $1 }' | sort -V | tail -n 1)
		version=$(apt-cache -c "$dir/apt.conf" show "$package" |
			awk '$1 == "Version:" { print $2 }' | sort -V |
			tail -n 1)
	fi
	echo "$package $version"
	if [ ! -f "$ZORVA_CACHE/${package}_${version}_all.deb" ]; then
		(cd "$work" && apt-get -c "$dir/apt.conf" -q download \
			"$package=$version")
		# The archive writes some versions' signs with a code.
		mv "$work/$package"_*.deb \
			"$ZORVA_CACHE/${package}_${version}_all.deb"
	fi
	echo "$package $version" >"$ZORVA_CACHE/source-$line.new"
	mv "$ZORVA_CACHE/source-$line.new" "$ZORVA_CACHE/source-$line"
	rm -rf "$dir"
}

name_source()
{
	read -r package version <<<"$source_name"
	source_deb=$ZORVA_CACHE/${package}_${version}_all.deb
}

key()
{
	{
		wanted_options "${fragments[@]}"
		[ -z "$patched" ] || cat "${patches[@]}"
		# The board's own kernel is told by these two alone.
		echo "$version $LAYOUT"
		[ "$arch" = mips ] || echo "$arch"
		"$compiler" --version | head -n 1
	} | short_hash
}

if [ -z "$source_name" ] || [ -n "$update" ]; then
	[ -z "$print_dir" ] ||
		die "$line was not fetched yet: run build.sh --line $line"
	cache_lock kernel
	work=$(cache_workdir kernel)
	step "kernel: fetch the newest of $line" fetch
	source_name=$(cat "$ZORVA_CACHE/source-$line")
fi
name_source
tree=$ZORVA_CACHE/kernel-$(key)
if [ -n "$print_dir" ]; then
	printf '%s\n' "$tree"
	exit
fi

# Of two thirds of the files nothing but their Kconfig and Makefile is looked at.
unneeded=('*/Documentation/*.rst' '*/Documentation/*.txt'
	'*/Documentation/*.yaml' '*/Documentation/*.svg' '*/tools/testing/*'
	'*/tools/perf/*' '*/drivers/'{gpu,media,staging,infiniband,scsi}'/*.[ch]'
	'*/drivers/net/'{ethernet,wireless}'/*.[ch]' '*/sound/*.[ch]'
	'*/Documentation/ABI/*' '*/arch/arm*/boot/dts/*.dts*')

unpack()
{
	mkdir -p "$work/linux"
	dpkg-deb --fsys-tarfile "$source_deb" |
		tar -xO "./usr/src/$package.tar.xz" |
		tar -xJ -C "$work/linux" --strip-components=1 \
			"${unneeded[@]/#/--exclude=}"
}

apply_patches()
{
	cat "${patches[@]}" | patch -d "$work/linux" -p1 --fuzz=0
}

kmake()
{
	make -C "$work/linux" ARCH="$arch" CROSS_COMPILE="$cross" \
		${clang:+LLVM=$clang} \
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
	kmake -j"$(jobs)" "${image##*/}" modules
	[ -s "$work/linux/Module.symvers" ]
	[ -x "$work/linux/usr/gen_init_cpio" ]
	# Here a module that goes leaves the ground around its global objects
	# forbidden to the next one.
	[ "$arch" != um ] || sed -i 's/asan-globals=1/asan-globals=0/' \
		"$work/linux/scripts/Makefile.kasan"
	# Who builds modules for this tree, or boots it, finds here with what.
	cat >"$work/linux/.zorva-kernel" <<-END
	line=$line
	version=$version
	arch=$arch
	cross=$cross
	clang=$clang
	image=$image
	END
}

# Leaves what modules, their tests and a reader of an oops need: vmlinux, the
# headers, the build scripts, the core's sources, and the kernel's own modules
# where they were built.
prune()
{
	local also=none

	[ "$arch" != um ] || also=x86
	cd "$work/linux"
	find arch -mindepth 1 -maxdepth 1 -type d \
		! -name "$srcarch" ! -name "$also" -exec rm -rf {} +
	rm -rf Documentation sound samples crypto firmware block security virt
	find drivers -depth \( -type d -empty -o ! -type d ! -name '*.ko' \) \
		-delete
	find tools -mindepth 1 -maxdepth 1 ! -name include ! -name objtool \
		! -name bpf -exec rm -rf {} +
	find . -path ./scripts -prune -o -path ./tools -prune -o -type f \
		\( -name '*.o' -o -name '*.a' -o -name '.*.cmd' \) \
		! -name module.lds.o -exec rm -f {} +
	rm -f .tmp_* ./vmlinux.o
}

if [ ! -d "$tree" ]; then
	cache_lock "${tree##*/}"
fi
if [ ! -d "$tree" ]; then
	say "Building kernel $version for $arch, once: $tree"
	work=$(cache_workdir "${tree##*/}")
	# shellcheck disable=SC2034 # step looks at it
	step_failure="cannot fetch $package $version, which is needed once (${source_deb##*/} in $ZORVA_CACHE does as well): is there a network?"
	[ -f "$source_deb" ] || step "kernel: fetch $package $version" fetch
	step_failure=
	step "kernel: unpack" unpack
	[ -z "$patched" ] || step "kernel: patch" apply_patches
	step "kernel: configure" configure
	step "kernel: compile" compile
	step "kernel: prune the tree" prune
	mv "$work/linux" "$tree"
	rm -rf "$work"
fi
