#!/bin/bash
# SPDX-License-Identifier: GPL-2.0
#
# Makes the Debian packages, in build/deb, and has lintian look at them.
set -euo pipefail

# shellcheck source=target/lib.sh
. "$(dirname "$0")/../target/lib.sh"

usage()
{
	cat <<END
usage: deb.sh

The sources are those that git knows or would take.

Environment: DEBFULLNAME and DEBEMAIL, who the packages say maintains them.
END
}

case ${1-} in
-h | --help)
	usage
	exit
	;;
'') ;;
*)
	usage >&2
	exit 2
	;;
esac

out=$ZORVA_BUILD/deb
version=$(cat "$ZORVA_ROOT/VERSION")
tree=$out/zorva-$version
# What make was told is for another build than that of the packages.
unset KERNEL_BUILD ZORVA_COMPONENTS DESTDIR PREFIX INSTALL_MOD_PATH LIBDIR \
	HOST_WIDTHS ZORVA_BUILD_LOCKED

# The day of the release is that of its section.
write_changelog()
{
	local maintainer day

	maintainer=$(sed -n 's/^Maintainer: //p' "$tree/debian/control")
	day=$(sed -nE "s/^## \[$version\] - ([0-9-]+)$/\1/p" \
		"$ZORVA_ROOT/CHANGELOG.md")
	[ -n "$day" ] || die "CHANGELOG.md has no section \"## [$version] - DATE\""
	cat <<END
zorva ($version) unstable; urgency=medium

  * Release $version: see CHANGELOG.md.

 -- $maintainer  $(LC_ALL=C date -u -d "$day" -R)
END
}

lay_out()
{
	rm -rf "$out"
	mkdir -p "$tree"
	# shellcheck disable=SC2119 # all
	list_sources | (cd "$ZORVA_ROOT" && tar -c -T -) | tar -x -C "$tree"
	cp -r "$tree/packaging/debian" "$tree/debian"
	[ -z "${DEBEMAIL-}" ] || sed -i \
		"s|^Maintainer: .*|Maintainer: ${DEBFULLNAME:-zorva} <$DEBEMAIL>|" \
		"$tree/debian/control"
	write_changelog >"$tree/debian/changelog"
}

build()
{
	cd "$tree"
	dpkg-buildpackage -b -us -uc
}

# Errors fail; what else it says is in the log.
check()
{
	lintian --fail-on error --display-info --tag-display-limit 0 \
		--allow-root "$out"/*.changes
}

build_lock
unset ZORVA_BUILD_LOCKED
step "deb: sources" lay_out
step "deb: packages" build
step "deb: lintian" check
ls -l "$out"/*.deb
