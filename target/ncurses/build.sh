#!/bin/bash
# SPDX-License-Identifier: GPL-2.0
#
# Builds a static ncurses for the board into the cache, from the source package
# of the Debian release that this machine runs. The terminals that it knows are
# in it: the board has no database of them.
set -euo pipefail

here=$(cd "$(dirname "$0")" && pwd)
# shellcheck source=target/lib.sh
. "$here/../lib.sh"
# shellcheck source=target/debian.sh
. "$here/../debian.sh"

# Raised when this script makes something else of the same options.
LAYOUT=1

usage()
{
	cat <<END
usage: ncurses/build.sh [--print-dir]

  --print-dir  print the result's directory, and build nothing
END
}

print_dir=
while [ $# -gt 0 ]; do
	case $1 in
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

# What a serial console's other end may be.
terminals=vt100,vt102,linux,xterm,xterm-256color,screen,ansi,dumb
options=(--with-fallbacks="$terminals" --enable-overwrite
	--disable-database --disable-home-terminfo --disable-leaks
	--disable-rpath --disable-scroll-hints --disable-stripping
	--disable-termcap --disable-widec
	--without-ada --without-cxx --without-cxx-binding --without-debug
	--without-dlsym --without-form --without-gpm --without-manpages
	--without-menu --without-panel --without-progs --without-shared
	--without-tests
	LDFLAGS="-static -no-pie")
cflags="-Os -fno-pie -mno-shared -mplt -ffunction-sections -fdata-sections"

need_cross_compiler "$CROSS_COMPILE"
# shellcheck source=/dev/null
codename=$(. /etc/os-release && echo "${VERSION_CODENAME:-stable}")
key=$({
	printf '%s\n' "${options[@]}" "$cflags" "$codename $LAYOUT"
	"${CROSS_COMPILE}gcc" --version | head -n 1
} | short_hash)
result=$ZORVA_CACHE/ncurses-$key
if [ -n "$print_dir" ]; then
	printf '%s\n' "$result"
	exit
fi

configure()
(
	# A curses without wide characters counts pairs of colours in 16 bits.
	sed -i 's/pairs#0x10000,/pairs#0x7fff,/' \
		"$work/ncurses/misc/terminfo.src"
	mkdir "$work/build"
	cd "$work/build"
	../ncurses/configure --host="$("${CROSS_COMPILE}gcc" -dumpmachine)" \
		--prefix=/ CC="${CROSS_COMPILE}gcc" \
		AR="$(command -v "${CROSS_COMPILE}ar")" \
		RANLIB="${CROSS_COMPILE}ranlib" BUILD_CC=gcc \
		CFLAGS="$cflags" "${options[@]}"
)

compile()
{
	make -C "$work/build" -j"$(jobs)" libs
}

collect()
{
	make -C "$work/build/ncurses" DESTDIR="$work/result" install.libs
	make -C "$work/build/include" DESTDIR="$work/result" install.includes
}

if [ ! -d "$result" ]; then
	cache_lock ncurses
fi
if [ ! -d "$result" ]; then
	say "Building the board's ncurses, once: $result"
	work=$(cache_workdir ncurses)
	# shellcheck disable=SC2034 # step looks at it
	step_failure="cannot fetch ncurses' source package, which is needed once: is there a network?"
	step "ncurses: fetch" debian_source "$work" ncurses
	step_failure=
	step "ncurses: configure" configure
	step "ncurses: compile" compile
	step "ncurses: collect" collect
	mv "$work/result" "$result"
	rm -rf "$work"
fi
