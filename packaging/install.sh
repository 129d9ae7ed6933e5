#!/bin/bash
# SPDX-License-Identifier: GPL-2.0
#
# Installs what modules of the firmware and tests on this machine are built
# with, or the module itself, and keeps a list of it, by which it goes again.
set -euo pipefail

# shellcheck source=target/lib.sh
. "$(dirname "$0")/../target/lib.sh"

usage()
{
	cat <<END
usage: install.sh install | modules | uninstall

  install    headers, zorva.mk, the list of components, the library for tests
             on this machine, the manual pages; the inspector when "make tools"
             has built it
  modules    zorva.ko, for the kernel of KERNEL_BUILD
  uninstall  takes both away

Environment: PREFIX (/usr/local); DESTDIR, a directory that stands for the
root; LIBDIR, of PREFIX (lib, or what CMake takes for it); KERNEL_BUILD, the
kernel tree; INSTALL_MOD_PATH, the root that the module is for; HOST_WIDTHS
(64;32 where the compiler has both).
END
}

case ${1-} in
-h | --help)
	usage
	exit
	;;
install | modules | uninstall) ;;
*)
	usage >&2
	exit 2
	;;
esac
[ $# -eq 1 ] || {
	usage >&2
	exit 2
}

prefix=${PREFIX:-/usr/local}
prefix=${prefix%/}
destdir=${DESTDIR-}
mod_path=${INSTALL_MOD_PATH-}
unset DESTDIR INSTALL_MOD_PATH
[[ $prefix/ = /*/ ]] || die "PREFIX=$prefix: not an absolute path"
[[ ${destdir:-/} = /* ]] || destdir=$PWD/$destdir
[[ ${mod_path:-/} = /* ]] || mod_path=$PWD/$mod_path
destdir=${destdir%/}
mod_path=${mod_path%/}
work=$ZORVA_BUILD/install
share=$prefix/share/zorva

# remove ROOT LIST: what the list names, and the list; of the directories those
# that were made for it and that nobody else uses. A list that was moved by hand
# is not followed out of ROOT.
remove()
{
	local root=$1 list=$2 path

	if grep -Eqv '^/' "$list" || grep -Eq '(^|/)\.\.(/|$)' "$list"; then
		die "$list: not a list of what was installed"
	fi
	cp "$list" "$work/removing"
	while read -r path; do
		case $path in
		*/) rmdir "$root$path" 2>/dev/null || true ;;
		*) rm -f "$root$path" ;;
		esac
	done < <(LC_ALL=C sort -r "$work/removing")
}

# place STAGE ROOT LIST: copies a tree, and writes down what came to be, the
# list itself included. What an earlier one has left goes first.
place()
{
	local stage=$1 root=$2 list=$3 path

	[ ! -f "$root$list" ] || remove "$root" "$root$list"
	mkdir -p "$stage${list%/*}"
	: >"$stage$list"
	chmod -R u=rwX,go=rX "$stage"
	mkdir -p "$root/"
	(cd "$stage" && find . -mindepth 1 -type d -printf '/%P/\n' -o \
		-printf '/%P\n') | LC_ALL=C sort >"$work/placing"
	while read -r path; do
		case $path in
		*/) [ -d "$root$path" ] || echo "$path" ;;
		*) echo "$path" ;;
		esac
	done <"$work/placing" >"$work/list"
	cp "$work/list" "$stage$list"
	tar -C "$stage" -c --owner=0 --group=0 . |
		tar -C "$root/" -x --no-same-owner --no-overwrite-dir
}

build_host()
{
	cmake -S "$ZORVA_ROOT/plat/host" -B "$work/host" \
		-DCMAKE_INSTALL_PREFIX="$prefix" \
		${LIBDIR:+-DCMAKE_INSTALL_LIBDIR="$LIBDIR"} \
		${HOST_WIDTHS:+-DZORVA_HOST_WIDTHS="$HOST_WIDTHS"}
	cmake --build "$work/host" --parallel "$(jobs)"
	DESTDIR=$stage cmake --install "$work/host"
}

# The headers are in the compiler's own path, with which no module of the
# kernel may be compiled. So zorva.mk has a path that leads to them alone.
lay_out()
{
	local plat=$stage$share/plat/linux up

	mkdir -p "$plat/include" "$plat/scripts"
	cp "$ZORVA_ROOT/plat/linux/zorva.mk" "$plat/"
	cp "$ZORVA_ROOT"/plat/linux/scripts/*.sh "$plat/scripts/"
	up=$(realpath -m --relative-to="$share/plat/linux/include" \
		"$prefix/include/zorva")
	ln -s "$up" "$plat/include/zorva"
	cp "$ZORVA_ROOT/VERSION" "$stage$share/"
	mkdir -p "$stage$prefix/share/man"
	cp -r "$ZORVA_BUILD/docs/man/man9" "$stage$prefix/share/man/"
}

lay_out_tools()
{
	local tools=$ZORVA_BUILD/tools

	"$ZORVA_ROOT/tools/zorva/man.sh" "$tools/zorva" "$tools/man"
	mkdir -p "$stage$prefix/bin" "$stage$prefix/share/man" \
		"$stage$prefix/share/bash-completion/completions"
	cp "$tools/zorva" "$ZORVA_ROOT/tools/zorva/zorva-snapshot" \
		"$stage$prefix/bin/"
	cp -r "$tools/man/man1" "$stage$prefix/share/man/"
	cp "$ZORVA_ROOT/tools/zorva/zorva.bash-completion" \
		"$stage$prefix/share/bash-completion/completions/zorva"
}

build_module()
{
	"$ZORVA_ROOT/target/modules.sh" module
	make -C "$KERNEL_BUILD" M="$built" ARCH="$arch" CROSS_COMPILE="$cross" \
		${clang:+LLVM=1} INSTALL_MOD_PATH="$stage" DEPMOD=true \
		modules_install
	mkdir -p "$stage$kept"
	cp "$built/Module.symvers" "$built/components.rows" "$stage$kept/"
}

depmod_in()
{
	PATH=$PATH:/sbin:/usr/sbin depmod -b "$mod_path/" "$1" ||
		say "depmod failed: run it on the machine itself"
}

build_lock
mkdir -p "$work"
stage=$work/stage
rm -rf "$stage"
mkdir "$stage"

case $1 in
install)
	step "install: manual pages" "$ZORVA_ROOT/docs/site/build.sh" man
	step "install: the library for this machine" build_host
	lay_out
	[ ! -x "$ZORVA_BUILD/tools/zorva" ] ||
		step "install: the inspector" lay_out_tools
	place "$stage" "$destdir" "$share/manifest"
	say "ZORVA=$share"
	;;
modules)
	[ -n "${KERNEL_BUILD-}" ] || die "KERNEL_BUILD is not set"
	kernel_facts "$KERNEL_BUILD"
	built=$ZORVA_BUILD/target/plat/linux/zorva
	release=$(cat "$KERNEL_BUILD/include/config/kernel.release")
	modules=/lib/modules/$release
	kept=$modules/zorva
	step "install: the module" build_module
	# Those of a kernel that is not there would be nobody's.
	if [ ! -f "$mod_path$modules/modules.dep" ]; then
		cp -r "$stage" "$work/indexed"
		mod_path=$work/indexed depmod_in "$release"
		cp "$work/indexed$modules"/modules.* "$stage$modules/" \
			2>/dev/null || true
		rm -rf "$work/indexed"
		place "$stage" "$mod_path" "$kept/manifest"
	else
		place "$stage" "$mod_path" "$kept/manifest"
		depmod_in "$release"
	fi
	;;
uninstall)
	shopt -s nullglob
	found=
	list=$destdir$share/manifest
	if [ -f "$list" ]; then
		found=yes
		remove "$destdir" "$list"
	fi
	for list in "$mod_path"/lib/modules/*/zorva/manifest; do
		found=yes
		modules=${list%/zorva/manifest}
		remove "$mod_path" "$list"
		[ ! -f "$modules/modules.dep" ] || depmod_in "${modules##*/}"
	done
	[ -n "$found" ] || die "nothing is installed here"
	;;
esac
rm -rf "$stage"
