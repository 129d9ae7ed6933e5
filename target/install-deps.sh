#!/bin/bash
# SPDX-License-Identifier: GPL-2.0
#
# Installs the Debian packages that are missing, and only those.
set -euo pipefail

# shellcheck source=target/lib.sh
. "$(dirname "$0")/lib.sh"

usage()
{
	cat <<END
usage: install-deps.sh GROUP...

  target    the cross compilers, what builds the kernel and BusyBox, and QEMU
  unit      the host tests: 32-bit compiler, CMake, GoogleTest
  host      the library for tests of firmware on this machine, and its tests
  coverage  what counts the lines that the host tests run
  mutants   what changes the module, and sees who notices
  fuzz      the compiler of the fuzzers
  tools     the inspector's libraries
  lint      formatting and static checks
  kit       what types the commands of the page for the first module
  kernels   what the other kernels and architectures need
  bench     the chart of the instruction counts
  gdb       a debugger for the board
  report    a browser, for the page of zorva report
  fleet     Prometheus, and what reads its format; as every package with a
            service, it may start one of its own on this machine
  docs      the site and the manual pages
  docs-test a browser and what looks at links
  install   what is installed on this machine: the library, the manual pages
  packages  what makes the Debian packages, and a root to try them in
END
}

case ${1-} in
-h | --help)
	usage
	exit
	;;
esac

packages=()
for group in "$@"; do
	case $group in
	target)
		packages+=(make gcc libc6-dev gcc-mips-linux-gnu
			g++-mips-linux-gnu libc6-dev-mips-cross
			flex bison bc xz-utils bzip2 patch dpkg-dev cpio
			qemu-system-mips)
		;;
	unit)
		packages+=(make cmake g++ g++-12-multilib libc6-dev-i386
			googletest libfmt-dev)
		;;
	host)
		packages+=(make cmake gcc g++ g++-12-multilib libc6-dev-i386
			binutils libgtest-dev pkgconf)
		;;
	coverage)
		packages+=(gcovr python3)
		;;
	mutants)
		packages+=(python3)
		;;
	fuzz)
		packages+=(clang libclang-rt-14-dev)
		;;
	tools)
		packages+=(make cmake g++ libcli11-dev libfmt-dev
			nlohmann-json3-dev libdw-dev libelf-dev graphviz
			libncurses-dev googletest python3-jsonschema
			help2man man-db mandoc tmux)
		;;
	lint)
		packages+=(make gcc g++ clang-format clang-tidy cppcheck
			shellcheck graphviz)
		;;
	kit)
		packages+=(python3)
		;;
	kernels)
		packages+=(make gcc g++ libc6-dev gcc-aarch64-linux-gnu
			g++-aarch64-linux-gnu libc6-dev-arm64-cross
			flex bison bc xz-utils bzip2 patch dpkg-dev cpio
			libelf-dev libssl-dev qemu-system-arm qemu-system-x86
			clang-19 lld-19 llvm-19 dwarves)
		;;
	bench)
		packages+=(gnuplot-nox)
		;;
	gdb)
		packages+=(gdb-multiarch)
		;;
	report)
		packages+=(python3 chromium fonts-dejavu-core)
		;;
	fleet)
		packages+=(python3 prometheus python3-prometheus-client curl
			procps)
		;;
	docs)
		packages+=(python3 python3-sphinx python3-myst-parser furo
			perl)
		;;
	docs-test)
		packages+=(python3 linkchecker chromium fonts-dejavu-core
			man-db mandoc)
		;;
	install)
		packages+=(make cmake g++ perl python3 linux-kbuild-6.1 kmod
			man-db)
		;;
	packages)
		packages+=(make cmake g++ dpkg-dev debhelper dh-dkms dkms
			python3-sphinx python3-myst-parser furo lintian
			mmdebstrap)
		;;
	*)
		usage >&2
		exit 2
		;;
	esac
done

command -v dpkg-query >/dev/null || {
	say "install-deps.sh: not a Debian machine; needed are:" \
		"${packages[*]}"
	exit
}

installed()
{
	[ "$(dpkg-query -W -f '${db:Status-Status}' "$1" 2>/dev/null)" = \
		installed ]
}

missing=()
for package in "${packages[@]}"; do
	[[ " ${missing[*]} " == *" $package "* ]] || installed "$package" ||
		missing+=("$package")
done
[ ${#missing[@]} -gt 0 ] || exit 0

root=()
if [ "$(id -u)" -ne 0 ]; then
	command -v sudo >/dev/null ||
		die "missing; as root: apt-get install ${missing[*]}"
	root=(sudo)
	# Nobody could type the password.
	[ -t 0 ] || root+=(-n)
	"${root[@]}" -v || die "missing; as root: apt-get install ${missing[*]}"
fi

apt()
{
	"${root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get -q \
		-o DPkg::Lock::Timeout=600 "$@"
}

say "Installing: ${missing[*]}"
# apt itself says little in much.
# shellcheck disable=SC2034 # step looks at it
step_failure="cannot fetch the Debian packages ${missing[*]}: is there a network?"
step "packages: update the lists" apt update
step "packages: install" apt install -y --no-install-recommends "${missing[@]}"
