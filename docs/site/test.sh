#!/bin/bash
# SPDX-License-Identifier: GPL-2.0
#
# Looks at the site as its reader does: every link, and the pages as a browser
# shows them; and at the manual pages as man does.
set -euo pipefail

# shellcheck source=target/lib.sh
. "$(dirname "$0")/../../target/lib.sh"

usage()
{
	cat <<END
usage: test.sh [COUNTS]

  COUNTS  a file for "PASSED FAILED", the numbers of checks

It needs what docs/site/build.sh makes. The browser's pictures are left in
build/docs/screenshots.
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
docs=$ZORVA_BUILD/docs
shots=$docs/screenshots
work=$(mktemp -d)
# What the browser has left running may still write.
trap 'rm -rf "$work" || true' EXIT
mkdir -p "$shots"
passed=0
failed=0

check()
{
	local text=$1
	shift

	if ("$@") >"$work/log" 2>&1; then
		say "ok: $text"
		passed=$((passed + 1))
	else
		say "FAILED: $text"
		sed 's/^/        /' "$work/log" >&2
		failed=$((failed + 1))
	fi
}

# browser OPTION... PAGE: the browser with a profile of its own, and with
# nothing that would reach out.
browser()
{
	timeout -k 5 120 chromium --headless --no-sandbox --disable-gpu \
		--disable-quic --no-first-run --disable-background-networking \
		--disable-component-update --disable-sync --hide-scrollbars \
		--allow-file-access-from-files --user-data-dir="$work/profile" \
		--virtual-time-budget=5000 "${@:1:$#-1}" \
		"file://$docs/html/${*: -1}" 2>"$work/browser.log"
}

# shows PAGE PICTURE TEXT...: the page that the browser has made, scripts and
# all, has each of the texts in what can be read on it.
shows()
{
	local page=$1 picture=$2 text bad=0
	shift 2

	browser --dump-dom "$page" >"$work/dom.html"
	browser --window-size=1280,900 --screenshot="$shots/$picture.png" \
		"$page"
	[ -s "$shots/$picture.png" ] || { echo "no picture" && bad=1; }
	/usr/bin/python3 -B "$ZORVA_ROOT/docs/site/readable.py" \
		"$work/dom.html" >"$work/readable"
	for text in "$@"; do
		grep -qF -- "$text" "$work/readable" ||
			{ echo "$page does not show: $text" && bad=1; }
	done
	return "$bad"
}

# Neither a page nor a place on one may be missing. What other sites have
# cannot be told from here.
check_links()
{
	printf '[AnchorCheck]\n[filtering]\ncheckextern=0\n' >"$work/links.conf"
	linkchecker -f "$work/links.conf" --no-status \
		"$docs/html/index.html" >"$work/links" 2>"$work/links.err" || {
		grep -A 5 '^URL  ' "$work/links" || cat "$work/links.err"
		return 1
	}
	grep -E '^That.s it\. [1-9][0-9]{2,} links' "$work/links"
}

man_page()
{
	man -M "$docs/man" -P cat "$1" 2>"$work/man.err"
}

check_man()
{
	man_page zorva_mutex_take >"$work/page"
	grep -q 'zorva_mutex_take, *zorva_mutex_take_track' "$work/page"
	grep -q 'SYNOPSIS' "$work/page"
	grep -q 'RETURN' "$work/page"
	grep -q "zorva $(cat "$ZORVA_ROOT/VERSION")" "$work/page"
	man_page zorva_mutex_take_track | cmp - "$work/page"
}

# Every exported function has a page, under both of its names.
check_man_all()
{
	local name bad=0

	while read -r name; do
		[ -f "$docs/man/man9/$name.9" ] ||
			{ echo "no manual page: $name" && bad=1; }
	done < <(sed -nE 's/^EXPORT_SYMBOL\((zorva_\w+)\);$/\1/p' \
		"$ZORVA_ROOT/plat/linux/zorva/zk.c")
	return "$bad"
}

# What mandoc calls an error or worse; it looks at the real pages alone.
check_man_form()
{
	cd "$docs/man/man9"
	grep -L '^\.so ' ./*.9 | xargs mandoc -T lint -W error
}

check "links and anchors" check_links
check "the front page in a browser" shows index.html front \
	zorva "What it promises" "The public headers"
check "a function's page in a browser" \
	shows "reference/mutex.html#zorva-mutex-take" function \
	zorva_mutex_take_track "takes a mutex, waiting for it without limit" \
	"zorva_mutex_take(compId, mutex)" "the calling task holds the mutex"
check "a search in a browser" shows "search.html?q=zorva_mutex_take" search \
	"Search finished, found" zorva_mutex_take_track
check "a manual page" check_man
check "a manual page for each function" check_man_all
check "the form of the manual pages" check_man_form

echo "docs: $passed passed, $failed failed"
[ -z "$counts" ] || echo "$passed $failed" >"$counts"
[ "$failed" -eq 0 ]
