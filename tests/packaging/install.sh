#!/bin/bash
# SPDX-License-Identifier: GPL-2.0
#
# Installs everything into a directory, builds the examples from there alone,
# and takes it away again.
set -euo pipefail

here=$(cd "$(dirname "$0")" && pwd)
# shellcheck source=target/lib.sh
. "$here/../../target/lib.sh"
# shellcheck source=tests/packaging/lib.sh
. "$here/lib.sh"

usage()
{
	cat <<END
usage: install.sh [COUNTS]

  COUNTS  a file for "PASSED FAILED", the numbers of checks

Environment: KERNEL_BUILD, for which the module is built.
END
}

counts_file "$@"
KERNEL_BUILD=${KERNEL_BUILD:-$("$ZORVA_ROOT/target/kernel/build.sh" \
	--print-dir)}
export KERNEL_BUILD
unset ZORVA_COMPONENTS
kernel_facts "$KERNEL_BUILD"
release=$(cat "$KERNEL_BUILD/include/config/kernel.release")
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
root=$work/root
prefix=/opt/zorva
installed=$root$prefix
mkdir -p "$root/opt" "$work/board"

# What is there before belongs to others.
echo other >"$root/opt/other"
list_tree "$root" >"$work/before"
list_tree "$work/board" >"$work/before.board"

installing()
{
	DESTDIR=$root PREFIX=$prefix INSTALL_MOD_PATH=$work/board \
		HOST_WIDTHS=64 "$ZORVA_ROOT/packaging/install.sh" "$1"
}

# Nothing that is installed may lead back to where it was made.
no_way_back()
{
	not grep -rIl "$ZORVA_ROOT" "$installed/include" "$installed/share" \
		"$installed/lib"/*/pkgconfig "$installed/lib"/*/cmake
}

show_man()
{
	man -M "$installed/share/man" -P cat zorva_mutex_take |
		grep 'zorva_mutex_take, *zorva_mutex_take_track'
}

# The examples as they are, in a directory of their own.
firmware()
{
	local ko

	rm -rf "$work/firmware"
	cp -r "$ZORVA_ROOT/examples" "$work/firmware"
	make -C "$KERNEL_BUILD" M="$work/firmware" ARCH="$arch" \
		CROSS_COMPILE="$cross" ZORVA="$installed/share/zorva" \
		INSTALL_MOD_PATH="$work/board" -j"$(jobs)" "$@" modules \
		>"$work/firmware.log" 2>&1 || {
		cat "$work/firmware.log"
		return 1
	}
	cat "$work/firmware.log"
	not grep -i warning "$work/firmware.log"
	for ko in fw_board fw_sys fw_poe; do
		"${cross}nm" "$work/firmware/$ko.ko" | grep ' U zorva_'
	done
}

# A list that the module was not built with is refused, from there as well.
other_list()
{
	sed 's/(14, POE,/(14, PWR,/' "$installed/include/zorva/components.def" \
		>"$work/other.def"
	not cmp -s "$work/other.def" "$installed/include/zorva/components.def"
	not firmware ZORVA_COMPONENTS="$work/other.def"
	grep 'row 14 is PWR, and POE in the list that this zorva' "$work/firmware.log"
}

by_cmake()
{
	cmake -S "$ZORVA_ROOT/examples/host" -B "$work/cmake" \
		-DCMAKE_PREFIX_PATH="$installed"
	grep "^zorva_DIR:PATH=$installed/" "$work/cmake/CMakeCache.txt"
	cmake --build "$work/cmake" --parallel "$(jobs)"
	ctest --test-dir "$work/cmake" --no-tests=error
}

# pkg_config OPTION...: the version is that of VERSION
pkg_config()
{
	PKG_CONFIG_LIBDIR=$(dirname "$(find "$installed" \
		-name zorva-host.pc)") PKG_CONFIG_SYSROOT_DIR=$root \
		pkg-config "$@" zorva-host
}

by_pkg_config()
{
	[ "$(pkg_config --modversion)" = "$(cat "$ZORVA_ROOT/VERSION")" ]
	# shellcheck disable=SC2046 # several words
	gcc -g "$ZORVA_ROOT"/examples/host/link.c \
		"$ZORVA_ROOT"/examples/host/link_c_test.c \
		$(pkg_config --cflags --libs) -o "$work/link"
	"$work/link"
}

# The version is in what is around the module, not in it.
no_version()
{
	local ko

	ko=$(find "$work/board" -name 'zorva.ko*')
	[ -n "$ko" ]
	/sbin/modinfo -F version "$ko" | none
	/sbin/modinfo -F vermagic "$ko" | grep "^$release "
}

check "make install" installing install
check "the same again" installing install
check "make modules_install" installing modules
check "no path of the checkout" no_way_back
check "a manual page" show_man
check "firmware modules, from what is installed" firmware
check "another list of components is refused" other_list
check "the module has no version" no_version
check "tests of firmware, by CMake" by_cmake
check "tests of firmware, by pkg-config" by_pkg_config
check "make uninstall" installing uninstall
check "nothing is left" nothing_left "$root" "$work/before"
check "nothing is left of the module" \
	nothing_left "$work/board" "$work/before.board"
check "what is left would be seen" left_is_seen "$root" "$work/before"
sum_up install "$counts"
