#!/bin/bash
# SPDX-License-Identifier: GPL-2.0
#
# What can be said about the sources without running them. One line for each
# check; what a failed one has found follows its line.
set -euo pipefail

usage()
{
	cat <<END
usage: lint.sh [COUNTS]

  COUNTS  a file for "PASSED FAILED", the numbers of checks
END
}

case ${1-} in
-*)
	usage
	[ "$1" = -h ] || [ "$1" = --help ] || exit 2
	exit
	;;
esac
counts=${1:+$(realpath -m "$1")}
cd "$(dirname "$0")/.."
# shellcheck source=target/lib.sh
. target/lib.sh
include=plat/linux/include
module=plat/linux/zorva

# The seam's sizes are those of the target, which the unit tests use as well.
seam=(-I"$include" -I"$module" -Iplat/common -Iplat/host/fake
	-D__KERNEL__ -DMODULE)
sizes=plat/host/fake/zk_sizes.h

# Layout and findings differ between versions: the one that Debian 12 has is
# taken where several are installed.
tool()
{
	command -v "$1-14" || command -v "$1" ||
		{ echo "$1 is not installed: run make deps" >&2 && return 1; }
}

# The lines of standard input, if any, are what is wrong.
none()
{
	! grep .
}

check_format()
{
	local format file

	format=$(tool clang-format)
	list_sources '*.c' '*.h' '*.cpp' | while read -r file; do
		"$format" "$file" | cmp -s - "$file" ||
			echo "$file: run $format -i $file"
	done | none
}

check_tidy()
{
	local tidy

	tidy=$(tool clang-tidy)
	list_sources "$module/*.cpp" 'plat/common/*.cpp' |
		xargs -P "$(nproc)" -I {} "$tidy" --quiet {} -- \
			-m32 -std=gnu++20 -ffreestanding -fno-exceptions \
			-fno-rtti -fno-threadsafe-statics -Wall -Wextra \
			-Wno-unused-parameter -include "$sizes" "${seam[@]}" \
			2>&1 | sed -E '/^[0-9]+ warnings? (and [0-9]+ errors? )?generated/d'
}

# Its idea of the C library has macros of the signals' names; it does not
# evaluate functions in an array's size, as the compiler does; and the library
# of which it would have algorithms used is not there.
check_cppcheck()
{
	list_sources "$module/*.cpp" 'plat/common/*.cpp' |
		xargs -r "$(tool cppcheck)" --quiet --error-exitcode=1 \
			--language=c++ --std=c++20 --platform=unix32 \
			--enable=warning,performance,portability,style \
			--inline-suppr --suppress=negativeArraySize \
			--suppress=useStlAlgorithm \
			-USIGKILL -USIGTERM \
			--include="$sizes" "${seam[@]}"
}

# Scripts: by their name, or by their first line.
scripts()
{
	list_sources | while read -r file; do
		case $file in
		*.sh)
			printf '%s\n' "$file"
			;;
		*)
			if head -c 64 "$file" | head -n 1 | tr -d '\0' |
				grep -Eq '^#!.*[/ ](ba|da)?sh( |$)'; then
				printf '%s\n' "$file"
			fi
			;;
		esac
	done
}

check_shell()
{
	scripts | xargs -r "$(tool shellcheck)" -x -P SCRIPTDIR
}

# A patch has lines that end in a blank: empty ones of its context. What the
# fuzzers are fed is no text.
check_blanks()
{
	local file

	list_sources | while read -r file; do
		grep -Iq . "$file" || continue
		case $file in
		tests/fuzz/corpus/* | tools/zorva/samples/*) continue ;;
		*.patch) ;;
		*) grep -HnE '[[:blank:]]$' "$file" || true ;;
		esac
		grep -Hn $'\r' "$file" || true
		[ -z "$(tail -c 1 "$file")" ] ||
			echo "$file: no newline at its end"
	done | none
}

check_licence()
{
	local file

	{
		list_sources '*.c' '*.h' '*.cpp' '*.def' '*Kbuild' '*.mk' '*Makefile'
		scripts
	} | sort -u | while read -r file; do
		head -n 2 "$file" | grep -q 'SPDX-License-Identifier: GPL-2.0' ||
			echo "$file: no SPDX line"
	done | none
}

# Each public header on its own, outside the kernel, in the oldest and the
# newest language that its users may have.
check_headers()
{
	local header std language bad=0

	for header in "$include"/zorva/*.h \
		plat/host/include/zorva/{host,host_thread}.h; do
		for std in gnu89 c11 gnu++11 gnu++20; do
			language=c
			[[ $std != *++* ]] || language=c++
			echo "#include <zorva/${header##*/}>" |
				gcc -x "$language" -std="$std" -Wall -Wextra \
					-Werror -fsyntax-only \
					-I"${header%/zorva/*}" -I"$include" - ||
				{ echo "$header: not as $std" && bad=1; }
		done
	done
	return "$bad"
}

# Every function of the public headers is exported and every export is in
# them, and each has a complete kernel-doc comment right before it.
check_docs()
{
	sed -nE 's/^EXPORT_SYMBOL(_GPL)?\((\w+)\);$/\2/p' "$module/zk.c" |
		awk -f tests/kernel-doc.awk - "$include"/zorva/*.h | none
	grep -ohE '^[a-z].*zorva_(host_\w+|thread_wait)\(' plat/host/*.cpp |
		grep -oE 'zorva_(host|thread)_\w+' | sort -u |
		awk -f tests/kernel-doc.awk - \
			plat/host/include/zorva/{host,host_thread}.h | none
}

# A link of a text to a file is to one that is there.
check_links()
{
	local file target

	list_sources '*.md' | while read -r file; do
		grep -oE '\]\([^)#]+' "$file" | cut -c3- |
			while read -r target; do
				case $target in
				*://*) ;;
				*)
					[ -e "$(dirname "$file")/$target" ] ||
						echo "$file: no $target"
					;;
				esac
			done || true
	done | none
}

# The sources of the module form layers, and the table that shows them is true.
check_layers()
{
	awk -f tests/layers.awk docs/architecture.md \
		"$module"/zorva_*.{cpp,h} plat/common/*.{cpp,h} | none
}

# The picture of the layers as well: what it shows is what the sources include.
check_picture()
{
	docs/pictures/layers.sh --check
}

check_figures()
{
	bench/tables.sh --check
}

passed=0
failed=0
log=$(mktemp)
trap 'rm -f "$log"' EXIT

check()
{
	local text=$1 start=$EPOCHREALTIME result=ok status took
	shift

	# A condition would make the shell ignore failures inside.
	set +e
	(
		set -e
		"$@"
	) >"$log" 2>&1
	status=$?
	set -e
	[ "$status" -eq 0 ] || result=FAILED

	took=$((${EPOCHREALTIME/[.,]/} - ${start/[.,]/}))
	printf '%-6s  %-32s %4d.%d s\n' "$result" "$text" \
		$((took / 1000000)) $((took / 100000 % 10))
	if [ "$result" = ok ]; then
		passed=$((passed + 1))
	else
		failed=$((failed + 1))
		sed 's/^/        /' "$log"
	fi
}

check "format (clang-format)" check_format
check "C++ (clang-tidy)" check_tidy
check "C++ (cppcheck)" check_cppcheck
check "scripts (shellcheck)" check_shell
check "public headers on their own" check_headers
check "comments of exported functions" check_docs
check "blanks and ends of lines" check_blanks
check "licence lines" check_licence
check "links between texts" check_links
check "layers of the sources" check_layers
check "picture of the layers" check_picture
check "figures of the measurements" check_figures

echo "lint: $passed passed, $failed failed"
[ -z "$counts" ] || echo "$passed $failed" >"$counts"
[ "$failed" -eq 0 ]
