#!/bin/bash
# SPDX-License-Identifier: GPL-2.0
#
# Makes the site and the manual pages, in build/docs/html and build/docs/man.
set -euo pipefail

# shellcheck source=target/lib.sh
. "$(dirname "$0")/../../target/lib.sh"

usage()
{
	cat <<END
usage: build.sh [man]

  man  the manual pages alone

KERNEL_BUILD names the kernel tree whose scripts/kernel-doc reads the headers.
The default is the board's own when it is there, or the one of the package
linux-kbuild.
END
}

case ${1-} in
-h | --help)
	usage
	exit
	;;
'' | man) ;;
*)
	usage >&2
	exit 2
	;;
esac

out=$ZORVA_BUILD/docs
here=$ZORVA_ROOT/docs/site
include=$ZORVA_ROOT/plat/linux/include/zorva
kernel_doc=
for kernel in ${KERNEL_BUILD:-"$("$ZORVA_ROOT/target/kernel/build.sh" \
	--print-dir)" /usr/lib/linux-kbuild-*}; do
	if [ -f "$kernel/scripts/kernel-doc" ]; then
		kernel_doc=$kernel/scripts/kernel-doc
		break
	fi
done
[ -n "$kernel_doc" ] || die "no scripts/kernel-doc: run make kernel"
version=$(cat "$ZORVA_ROOT/VERSION")

# Debian's Python, which has Debian's Sphinx.
python()
{
	/usr/bin/python3 -B "$@"
}

# The day of the release, so that the same sources give the same pages.
release_day()
{
	sed -nE "s/^## \[$version\] - ([0-9-]+)$/\1/p" \
		"$ZORVA_ROOT/CHANGELOG.md" | grep . ||
		die "CHANGELOG.md has no section \"## [$version] - DATE\""
}

make_man()
{
	python "$here/man.py" "$kernel_doc" "$include" "$version" "$day" \
		"$out/man/man9"
}

# A warning is an error: a page that Sphinx only half understood misleads.
make_site()
{
	python "$here/stage.py" "$ZORVA_ROOT" "$kernel_doc" "$out/source"
	/usr/bin/python3 -m sphinx -q -W --keep-going -E -b html \
		-d "$out/doctrees" "$out/source" "$out/html"
}

mkdir -p "$out"
day=$(release_day)
step "docs: manual pages" make_man
[ "${1-}" = man ] || step "docs: site" make_site
