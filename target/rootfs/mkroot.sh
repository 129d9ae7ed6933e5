#!/bin/bash
# SPDX-License-Identifier: GPL-2.0
#
# Packs the board's root file system: BusyBox, init and the given files. Needs
# no privileges: the archive says that root owns everything, and the console's
# device node comes from the one that every kernel carries.
set -euo pipefail

here=$(cd "$(dirname "$0")" && pwd)
# shellcheck source=target/lib.sh
. "$here/../lib.sh"

usage()
{
	cat <<END
usage: mkroot.sh OUT [FILE | FILE=PATH]...

  OUT        the archive to write (cpio, compressed)
  FILE       a module, for /lib/modules/zorva
  FILE=PATH  a file, and where the board has it; /etc/scenario is what runs
END
}

case ${1-} in
-h | --help)
	usage
	exit
	;;
'' | -*)
	usage >&2
	exit 2
	;;
esac
out=$1
shift

kernel_facts "${KERNEL_BUILD-}"
busybox=$("$here/../busybox/build.sh" --arch "$arch" --print-dir)
[ -d "$busybox" ] || die "BusyBox is not built: run target/busybox/build.sh"

mkdir -p "$(dirname "$out")"
stage=$(mktemp -d "$out.XXXXXX")
trap 'rm -rf "$stage"' EXIT

umask 022
root=$stage/root
mkdir -p "$root"/{bin,dev,etc,lib/modules/zorva,mnt,proc,root,sbin,sys,tmp} \
	"$root"/{usr/bin,usr/sbin,var}
install -m 755 "$busybox/busybox" "$root/bin/busybox"
while read -r name; do
	ln -s /bin/busybox "$root$name"
done <"$busybox/busybox.links"
install -m 755 "$here/init" "$root/init"
install -m 644 "$here/banner" "$root/etc/banner"
cat >"$root/etc/passwd" <<END
root::0:0:root:/root:/bin/sh
operator::1000:1000:operator:/tmp:/bin/sh
END
cat >"$root/etc/group" <<END
root:x:0:
operator:x:1000:
END

for file in "$@"; do
	case $file in
	*=*)
		from=${file%%=*}
		to=${file#*=}
		;;
	*.ko)
		from=$file
		to=/lib/modules/zorva/${file##*/}
		;;
	*)
		die "$file: say where the board has it (FILE=PATH)"
		;;
	esac
	[ -f "$from" ] || die "$from: no such file"
	mode=644
	[ ! -x "$from" ] || mode=755
	install -D -m "$mode" "$from" "$root$to"
	# The debug information stays on the host: it is most of a module.
	[[ $to != *.ko ]] ||
		"${cross}strip" --strip-debug "$root$to"
done

# The same files make the same archive.
find "$root" -exec touch -h -d @0 {} +
(cd "$root" && find . | LC_ALL=C sort |
	cpio --quiet --reproducible -o -H newc -R 0:0) |
	gzip -n -6 >"$stage/root.cpio.gz"
mv "$stage/root.cpio.gz" "$out"
