#!/bin/bash
# SPDX-License-Identifier: GPL-2.0
#
# Modules of one's own on the board: what becomes of good ones and of bad ones,
# in C and in C++.
set -euo pipefail

usage()
{
	cat <<END
usage: board.sh [COUNTS]

  COUNTS  a file for "PASSED FAILED"

Environment: KERNEL_BUILD (a kernel tree instead of the board's own),
BOARD_TIMEOUT (seconds; 120).
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
# shellcheck source=tests/kit/check.sh
. "$(dirname "$0")/check.sh"
cd "$ZORVA_ROOT"
export BOARD_TIMEOUT=${BOARD_TIMEOUT:-120}
unset M SCENARIO FILES SHARE
build_lock

# module DIR: a module of its directory's name, whose source is read from
# standard input
module()
{
	mkdir -p "$work/$1"
	echo "obj-m := $1.o" >"$work/$1/Kbuild"
	{
		echo '#include <linux/module.h>'
		echo '#include <zorva/zorva.h>'
		cat
		echo 'MODULE_LICENSE("GPL");'
	} >"$work/$1/$1.c"
}

# init_and_exit INIT EXIT: the functions of a module
init_and_exit()
{
	cat <<END
static int __init begin(void)
{
	$1
	return 0;
}
module_init(begin);
static void __exit end(void)
{
	$2
}
module_exit(end);
END
}


# --- A module that uses another one's symbol and a header beside it; the
# scenario's status, more files, the order of modules
mkdir -p "$work/include"
echo '#define BASE_VALUE 3' >"$work/include/base_value.h"
module base <<END
#include "base_value.h"
int base_value(void);
int base_value(void) { return BASE_VALUE; }
EXPORT_SYMBOL(base_value);
$(init_and_exit '' '')
END
echo "ccflags-y := -I\$(src)/../include" >>"$work/base/Kbuild"
module user <<END
int base_value(void);
static void *block;
$(init_and_exit 'block = zorva_malloc(ZORVA_COMP_POE, base_value());' \
	'zorva_free(ZORVA_COMP_POE, block);')
END
echo "what was given" >"$work/given"
cat >"$work/scenario" <<'END'
modprobe user && lsmod
cat /etc/given
grep POE /proc/zorva/zorva.mem
exit 7
END
find "$work/base" "$work/user" -exec ls -ld --full-time {} + >"$work/before"
says "a scenario's status is that of the board" 7 \
	'^scenario: exit status 7' \
	env M="$work/base $work/user" SCENARIO="$work/scenario" \
	FILES="$work/given=/etc/given" target/board.sh run
said_too "modprobe loads the module that prints the reports" '^fw_board '
said_too "... and what a module needs" '^base '
said_too "another directory's symbols and a header beside it are found" \
	'^POE +3 '
said_too "more files are on the board" '^what was given'
said_too "the console's log is named" 'console: .*/own-console\.log$'
find "$work/base" "$work/user" -exec ls -ld --full-time {} + >"$work/after"
says "nothing is written into the directories" 0 '^$|^same$' \
	sh -c "diff $work/before $work/after && echo same"

# --- What is left, whatever it is
module left <<END
static int runs(void *unused) { return 0; }
static void entry(void *unused) { zorva_time_sleep(60); (void)runs; }
static void expired(unsigned long unused) { }
static u32 timer;
$(init_and_exit '
	zorva_mutex_t *mutex = zorva_mutex_create(ZORVA_COMP_POE, "forgotten");
	zorva_sem_t *sem = zorva_sem_create(ZORVA_COMP_POE, "unseen", 1);
	u32 pid = zorva_thread_create(ZORVA_COMP_POE, "runs-on", 0, 128, entry,
				      NULL);
	int i;

	zorva_mutex_take(ZORVA_COMP_POE, mutex);
	zorva_mutex_give(ZORVA_COMP_POE, mutex);
	zorva_sem_take(ZORVA_COMP_POE, sem, 0);
	zorva_msg_queue_create(ZORVA_COMP_POE, "full", 2, 2);
	zorva_timer_init(ZORVA_COMP_POE, &timer, expired, 0);
	zorva_timer_start(ZORVA_COMP_POE, &timer, 60000);
	for (i = 0; i < 3; i++)
		zorva_malloc(ZORVA_COMP_POE, 28);
	(void)pid;' '')
END
says "a module test finds what is left: memory" 'not 0' \
	'^not ok  left left 3 blocks, 84 bytes: left\.c, [0-9]+$' \
	env M="$work/left" target/board.sh module-test
said_too "... a mutex" '^not ok  left left the mutex forgotten \(POE'
said_too "... a semaphore" '^not ok  left left the semaphore unseen \(POE'
said_too "... a queue" '^not ok  left left the queue full \(POE\)'
said_too "... a thread" '^not ok  left left the thread runs-on \(POE, PID'
said_too "... a timer that runs" '^not ok  left left a running timer \(POE'

# --- What goes wrong
module oops < <(init_and_exit '*(volatile int *)0 = 1;' '')
says "a module that oopses as it is loaded is named, with the log" 'not 0' \
	'came to harm in oops, .*; console: /' \
	env M="$work/oops" target/board.sh module-test
said_too "... and fails its test" \
	'^not ok  oops: does not come back from its load'
module refuses < <(init_and_exit 'return -ENODEV;' '')
says "a module that refuses to be loaded fails its test" 'not 0' \
	'^not ok  refuses: cannot be loaded' \
	env M="$work/refuses" target/board.sh module-test
module tears < <(init_and_exit '
	char *block = zorva_malloc(ZORVA_COMP_POE, 10);

	block[12] = 1;
	zorva_free(ZORVA_COMP_POE, block);' '')
says "a torn block fails the test" 'not 0' \
	'^not ok  complaints of the kernel or of zorva: 1' \
	env M="$work/tears" target/board.sh module-test
module warns < <(init_and_exit 'WARN_ON(1);' '')
says "a warning of the kernel fails the test" 'not 0' \
	'^not ok  complaints of the kernel or of zorva: 1' \
	env M="$work/warns" target/board.sh module-test
echo 'modprobe user; sleep 600' >"$work/scenario"
says "a scenario that hangs ends at the limit, with the log" 124 \
	'limit of 15 s \(BOARD_TIMEOUT=15\); console: /' \
	env BOARD_TIMEOUT=15 M="$work/base $work/user" \
	SCENARIO="$work/scenario" target/board.sh run
module broken <<<'int broken(void) { return nothing; }'
says "a module that does not build is named, with the log" 'not 0' \
	"^firmware\\.sh: $work/broken does not build; log: /" \
	env M="$work/broken" target/board.sh module
said_too "... and the error, with one's own file" \
	"^$work/broken/broken\\.c:3:.*nothing"
module missing <<END
int there_is_none(void);
$(init_and_exit 'return there_is_none();' '')
END
says "a symbol that is missing is named" 'not 0' '"there_is_none".*undefined' \
	env M="$work/missing" target/board.sh module

# --- C++
mkdir "$work/cxx"
cat >"$work/cxx/Kbuild" <<'END'
obj-m := cxx.o
cxx-y := cxx_c.o cxx_cxx.o
END
cat >"$work/cxx/cxx_c.c" <<'END'
#include <linux/module.h>
int cxx_begin(void);
static int __init begin(void) { return cxx_begin(); }
module_init(begin);
MODULE_LICENSE("GPL");
END
cat >"$work/cxx/cxx_cxx.cpp" <<'END'
struct base { virtual ~base(); int *pointer; };
base::~base() { delete pointer; }
int value();
int global = value();
extern "C" long long cxx_divide(long long a, long long b) { return a / b; }
extern "C" int cxx_begin(void) { return 0; }
END
says "C++ that needs its run-time is refused: delete" 'not 0' \
	'cxx_cxx\.o: needs operator new or delete' \
	env M="$work/cxx" target/board.sh module
said_too "... a division" 'cxx_cxx\.o: divides numbers of 64 bits'
said_too "... a constructor" 'cxx_cxx\.o: has the section \.init_array'
cat >"$work/scenario" <<'END'
modprobe fw_poe || exit
ask=/sys/module/fw_poe/parameters/ask
echo "3 15400" >$ask
echo "4 50000" >$ask
sleep 0.3
echo "granted: $(cat /sys/module/fw_poe/parameters/granted)"
rmmod fw_poe
END
says "the example in C++ works" 0 '^granted: 15400' \
	env SCENARIO="$work/scenario" target/board.sh run
said_too "... its C part as well" 'fw_poe: port 4: no 50000 mW left'

# --- A list of components that differs
sed 's/(14, POE,/(14, PWR,/' plat/linux/include/zorva/components.def \
	>"$work/my.def"
echo "ZORVA_COMPONENTS := $work/my.def" >>"$work/base/Kbuild"
says "a list that differs from zorva's is refused, with its row" 'not 0' \
	'my\.def:[0-9]+: row 14 is PWR, and POE in the list that this zorva' \
	env M="$work/base" target/board.sh module

# --- Paths to paste
says "make info has paths" 0 '^ZORVA_SYMBOLS=/' make -s info
while read -r path; do
	says "... that are there: ${path#"$ZORVA_ROOT"/}" 0 . ls -d "$path"
done < <(sed -n 's/^[A-Z_]*=\(\/.*\)/\1/p' "$work/said")

conclude kit "$counts"
