#!/bin/bash
# SPDX-License-Identifier: GPL-2.0
#
# Installs the packages in a minimal root that knows nothing else, uses them
# there, and takes them away again.
#
# What stands in single quotes is for the shell in there.
# shellcheck disable=SC2016
set -euo pipefail

here=$(cd "$(dirname "$0")" && pwd)
# shellcheck source=target/lib.sh
. "$here/../../target/lib.sh"
# shellcheck source=tests/packaging/lib.sh
. "$here/lib.sh"

usage()
{
	cat <<END
usage: deb.sh [COUNTS]

  COUNTS  a file for "PASSED FAILED", the numbers of checks

It needs root, and what packaging/deb.sh makes. The root comes from where this
machine's packages come from.
END
}

counts_file "$@"
[ "$(id -u)" -eq 0 ] || die "only root can make a root"
shopt -s nullglob
packages=("$ZORVA_BUILD"/deb/*.deb)
[ ${#packages[@]} -eq 3 ] || die "there are no packages: run make deb"
version=$(cat "$ZORVA_ROOT/VERSION")
work=$(mktemp -d)
trap 'rm -rf --one-file-system "$work"' EXIT
root=$work/root

# The kernel's headers, and what the packages depend on: they are here before,
# so that what is there afterwards can be compared. The last four are for the
# examples.
have=(linux-headers-amd64 dkms g++ libjs-sphinxdoc man-db
	cmake make pkgconf libgtest-dev)

# This release, as this machine's own apt is told of it.
sources()
{
	# shellcheck source=/dev/null
	. /etc/os-release
	grep -lE "(^Suites:.* |^deb .* )$VERSION_CODENAME( |\$)" \
		/etc/apt/sources.list /etc/apt/sources.list.d/*.{list,sources} \
		2>/dev/null
}

make_root()
{
	local files codename

	mapfile -t files < <(sources)
	[ ${#files[@]} -gt 0 ]
	# shellcheck source=/dev/null
	codename=$(. /etc/os-release && echo "$VERSION_CODENAME")
	apt-config dump Acquire | grep '^Acquire::.* "..*";$' >"$work/apt.conf"
	mmdebstrap --variant=minbase --aptopt="$work/apt.conf" \
		--include="$(IFS=,; echo "${have[*]}")" \
		"$codename" "$root" "${files[@]}"
}

# inside COMMAND...: in the root, with nothing of this machine's but its kernel
inside()
{
	unshare --mount --pid --fork --mount-proc="$root/proc" \
		chroot "$root" env -i HOME=/root LC_ALL=C.UTF-8 TERM=dumb \
		PATH=/usr/sbin:/usr/bin:/sbin:/bin \
		DEBIAN_FRONTEND=noninteractive release="$release" \
		version="$version" "$@"
}

script()
{
	inside bash -euo pipefail -c "$(declare -f not none)
		$1"
}

install_packages()
{
	cp "${packages[@]}" "$root/tmp/"
	inside bash -c 'apt-get install -y --no-install-recommends \
		/tmp/*.deb' || {
		cat "$root"/var/lib/dkms/zorva/*/build/make.log
		return 1
	}
	rm "$root"/tmp/*.deb
	inside apt-get check
	[ "$(inside dpkg-query -W -f '${Version}\n' zorva-dkms libzorva-dev \
		zorva-doc | sort -u)" = "$version" ]
}

# Its own information has no version: VERSION is not in it.
by_dkms()
{
	script 'dkms status | grep "^zorva/$version, $release, .*: installed$"
		modinfo -k "$release" -F filename zorva | grep updates/dkms
		modinfo -k "$release" -F vermagic zorva | grep "^$release "
		modinfo -k "$release" -F version zorva | none'
}

man_page()
{
	script 'man -P cat zorva_mutex_take |
		grep "zorva_mutex_take, *zorva_mutex_take_track"
		man -w zorva_malloc_track | grep "^/usr/share/man/man9/"'
}

pages()
{
	script 'grep "What it promises" /usr/share/doc/zorva-doc/html/index.html
		cd /usr/share/doc/zorva-doc/html
		find . -xtype l | none'
}

firmware()
{
	script 'cp -r /usr/share/doc/libzorva-dev/examples /tmp/firmware
		make -C "/lib/modules/$release/build" M=/tmp/firmware \
			ZORVA=/usr/share/zorva modules 2>&1 | tee /tmp/log
		not grep -i "warning.*undefined" /tmp/log
		for ko in fw_board fw_sys fw_poe; do
			nm "/tmp/firmware/$ko.ko" | grep " U zorva_"
			modinfo -F vermagic "/tmp/firmware/$ko.ko" |
				grep "^$release "
		done'
}

host_example()
{
	script 'cp -r /usr/share/doc/libzorva-dev/examples/host /tmp/host
		cmake -S /tmp/host -B /tmp/host/build
		cmake --build /tmp/host/build
		ctest --test-dir /tmp/host/build --no-tests=error
		cd /tmp/host
		[ "$(pkg-config --modversion zorva-host)" = "$version" ]
		gcc -g link.c link_c_test.c \
			$(pkg-config --cflags --libs zorva-host) -o link
		./link'
}

remove_packages()
{
	inside apt-get remove -y zorva-dkms libzorva-dev zorva-doc
	script 'not grep zorva < <(dkms status)
		not modinfo -k "$release" zorva
		dpkg --purge zorva-dkms libzorva-dev zorva-doc
		not dpkg-query -W "*zorva*"'
}

step "deb-test: a minimal root" make_root
release=$(cd "$root/lib/modules" && echo *)
# What a kernel's own package would have made.
inside depmod "$release"
list_tree "$root" >"$work/before"

check "the packages install" install_packages
check "DKMS has built the module for $release" by_dkms
check "man zorva_mutex_take" man_page
check "the pages are complete" pages
check "firmware modules, from what is installed" firmware
check "tests of firmware, from what is installed" host_example
check "the packages go" remove_packages
check "nothing is left" nothing_left "$root" "$work/before"
check "what is left would be seen" left_is_seen "$root" "$work/before"
sum_up deb "$counts"
