#!/bin/bash
# SPDX-License-Identifier: GPL-2.0
#
# Starts the emulated board, or another machine that a kernel was built for. Its scenario's exit status becomes this script's,
# unless the kernel itself came to harm.
set -euo pipefail

# shellcheck source=target/lib.sh
. "$(dirname "$0")/lib.sh"

usage()
{
	cat <<END
usage: boot.sh --kernel VMLINUX --initrd ARCHIVE [options]

  --arch ARCH      what VMLINUX was built for: mips (the board), arm64, x86_64,
                   or um, which needs no emulator and runs in time of its own
  --log FILE       where the console's output goes (build/logs/console.log)
  --show           show the console as well
  --shell          a shell on this terminal instead of the scenario
  --timeout S      the time limit (120; none for a shell)
  --append WORDS   more words for the kernel's command line; NAME=value words
                   become environment variables of the scenario
  --icount SHIFT   count instructions: one takes 2^SHIFT ns of guest time
                   (one processor)
  --real-time      with um: sleepers are waited for
  --memory MB      128, or what the architecture needs
  --gdb SOCKET     wait for a debugger there before the kernel starts
  --gdb-any SOCKET a debugger may come there at any time
  --net PORT       a network device; what comes to 127.0.0.1:PORT of this machine
                   goes to port 80 of the board, and nothing leaves it (mips)
  --share DIR      a folder of this machine that the board has at /mnt
  --check          look at the options and for the emulator, and start nothing

Exit status: the scenario's, but 1 when the board never said; 2 for wrong
usage; 3 when the kernel came to harm; 124 at the limit.
END
}

# BOARD_ARGS is where most options come from that are none.
wrong_usage()
{
	say "boot.sh: $1${BOARD_ARGS:+ (BOARD_ARGS=$BOARD_ARGS)};" \
		"target/boot.sh --help shows them"
	exit 2
}

kernel=
arch=mips
initrd=
log=$ZORVA_LOGS/console.log
show=
shell=
limit=120
append=
icount=
memory=
gdb=
gdb_wait=
net=
share=
check=
own_time=time-travel
while [ $# -gt 0 ]; do
	case $1 in
	--show) show=1 ;;
	--real-time) own_time= ;;
	--shell) shell=1 ;;
	--check) check=1 ;;
	-h | --help)
		usage
		exit
		;;
	--kernel | --arch | --initrd | --log | --timeout | --append | \
		--icount | --memory | --gdb | --gdb-any | --net | --share)
		[ $# -ge 2 ] || wrong_usage "$1: says nothing more"
		case $1 in
		--kernel) kernel=$2 ;;
		--arch) arch=$2 ;;
		--initrd) initrd=$2 ;;
		--log) log=$2 ;;
		--timeout) limit=$2 ;;
		--append) append=$2 ;;
		--icount) icount=$2 ;;
		--memory) memory=$2 ;;
		--gdb) gdb=$2 gdb_wait=-S ;;
		--gdb-any) gdb=$2 ;;
		--net) net=$2 ;;
		--share) share=$2 ;;
		esac
		shift
		;;
	*)
		wrong_usage "$1: no such option"
		;;
	esac
	shift
done
# The machine, as a command that lacks the kernel's words.
machine=()
console=ttyS0
packages=kernels
case $arch in
mips)
	machine=(qemu-system-mips -M malta -cpu 24Kf -m "${memory:-128}")
	packages=target
	;;
x86_64)
	# At boot the kernel forgets for a moment how many levels its pages have;
	# with KASAN an interrupt in it is taken for a wild access. Not with four.
	machine=(qemu-system-x86_64 -M q35 -smp 4 -m "${memory:-512}"
		-cpu "max,la57=off")
	# On a busy host the timer seems not to work.
	append="no_timer_check $append"
	icount=
	;;
arm64)
	machine=(qemu-system-aarch64 -M virt -smp 4 -m "${memory:-512}"
		-cpu "max,pauth-impdef=on")
	console=ttyAMA0
	icount=
	;;
um)
	icount=
	;;
*) die "--arch $arch: there are mips, arm64, x86_64 and um" ;;
esac
[ "$arch" = um ] || command -v "${machine[0]}" >/dev/null ||
	die "no ${machine[0]} in PATH: run target/install-deps.sh $packages"
[ -z "$share" ] || [ -d "$share" ] || die "$share: no such folder to share"
[[ $net =~ ^[0-9]*$ ]] || wrong_usage "--net $net: no port"
[ -z "$net" ] || [ "$arch" = mips ] || die "--net: only the board has one"
[ -z "$check" ] || exit 0
if [ -z "$kernel" ] || [ -z "$initrd" ]; then
	usage >&2
	exit 2
fi
[ -f "$kernel" ] || die "$kernel: no such kernel"
[ -f "$initrd" ] || die "$initrd: no such archive"
# Suites are wanted, which kernels of 6.1 and later ask about, and from 7.0 on
# once more.
words="panic=-1 quiet kunit.enable=1 kunit.autorun=1"
if [ "$arch" = um ]; then
	machine=("$kernel" "mem=${memory:-256}M" "initrd=$initrd")
	[ -z "$share" ] || die "--share: not with um"
	# A restart would start the same again.
	words="END=poweroff $words"
else
	machine+=(-vga none -display none -no-reboot
		-kernel "$kernel" -initrd "$initrd")
	words="console=$console $words"
fi
[ -z "$icount" ] || machine+=(-icount "shift=$icount" -rtc clock=vm)
[ -z "$gdb" ] ||
	machine+=(${gdb_wait:+-S} -gdb "unix:$gdb,server=on,wait=off")
if [ -n "$net" ]; then
	# In this slot it has an interrupt of its own. The board's controller
	# takes edges: of two devices on one line it can miss one for good.
	machine+=(-netdev
		"user,id=net,restrict=on,hostfwd=tcp:127.0.0.1:$net-:80"
		-device "virtio-net-pci,netdev=net,addr=0x14")
	words+=" net"
elif [ "$arch" != um ]; then
	machine+=(-nic none)
fi
if [ -n "$share" ]; then
	# A comma would end the name; it is said by two.
	machine+=(-fsdev "local,id=share,path=${share//,/,,},security_model=none"
		-device "virtio-9p-pci,fsdev=share,mount_tag=share")
	words+=" share"
fi

if [ -n "$shell" ]; then
	read -r rows cols < <(stty size 2>/dev/null || echo 0 0)
	# A terminal may not know its size.
	[ "$rows" -gt 0 ] || rows=24
	[ "$cols" -gt 0 ] || cols=80
	words="$words shell LINES=$rows COLUMNS=$cols TERM=${TERM:-vt100} $append"
	if [ "$arch" = um ]; then
		# shellcheck disable=SC2086 # several words
		exec "${machine[@]}" con0=fd:0,fd:1 console=tty0 $words
	fi
	exec "${machine[@]}" -serial mon:stdio -append "$words"
fi

# After an oops nothing that the board says counts: it stops there.
words="$words oops=panic"
# The kernel's log marks what user space wrote; its own lines keep their time.
# The console's driver drops empty lines; a line of one blank stands for them.
clean=(-e 's/\r$//' -e 's/^\[ *[0-9.]+\] \[U\] ?//' -e 's/^ $//')
mkdir -p "$(dirname "$log")"
rm -f "$log"
viewer=(cat)
if [ -n "$show" ]; then
	viewer=(sed -Eun "${clean[@]}" -e "/^scenario: starts/,\$p")
	exec 3>&1
else
	exec 3>/dev/null
fi

# The log is the emulator's own, so a slow viewer costs nothing.
start=$SECONDS
set +e
if [ "$arch" = um ]; then
	# Its console is what it says itself, into a file: it does not wait for
	# a slow reader, and what that has no room for is lost. In its own time
	# nobody waits for a sleeper.
	: >"$log"
	tail -f -n +1 --pid=$$ "$log" 8>&- | "${viewer[@]}" >&3 &
	# shellcheck disable=SC2086 # several words
	timeout --foreground -k 5 "$limit" "${machine[@]}" $own_time \
		$words $append </dev/null >"$log" 2>&1
	status=$?
else
	timeout --foreground -k 5 "$limit" "${machine[@]}" \
		-chardev "stdio,id=console,signal=on,logfile=$log" \
		-serial chardev:console -append "$words $append" \
		</dev/null 2>"$log.qemu" | "${viewer[@]}" >&3
	status=${PIPESTATUS[0]}
fi
set -e
took=$((SECONDS - start))

if [ -s "$log.qemu" ] && [ "$status" -ne 124 ]; then
	say "boot.sh: the emulator says:"
	cat "$log.qemu" >&2
fi
rm -f "$log.qemu"
[ -f "$log" ] || die "the emulator did not start (status $status)"
sed -Ei "${clean[@]}" "$log"

# A race is told, but it is only a complaint when a module has a part in it: a
# kernel has some of its own.
if grep -q 'BUG: KCSAN: ' "$log"; then
	awk '
		function end_report() {
			if (!has_module)
				sub(/BUG: KCSAN: /, "KCSAN: ", report)
			printf "%s", report
			report = ""
			inside = has_module = 0
		}
		/BUG: KCSAN: / { end_report(); inside = 1 }
		!inside { print; next }
		/ \[[a-z][a-z0-9_]*\]/ { has_module = 1 }
		{ report = report $0 "\n" }
		/ Reported by Kernel Concurrency Sanitizer/ { end_report() }
		END { end_report() }' "$log" >"$log.races"
	mv "$log.races" "$log"
fi

# An oops, a panic, a complaint of the allocator or of the lock checker, a
# stall. A plain WARNING ("WARNING: CPU: ...", or since 7.0 "WARNING: at ...") is
# left to the tests.
harm='^\[ *[0-9.]+\] (.*\[#[0-9]+\]:$|Kernel panic|(watchdog: )?BUG[: ]'
harm+='|CPU [0-9]+ Unable to handle|UBSAN: |WARNING: ([b-z]|a[^t])[a-z-]* |INFO: (task|rcu))'
if grep -Eq "$harm" "$log"; then
	[ -n "$show" ] || grep -E -m 1 -A 30 "$harm" "$log" >&2
	# The module in whose code it happened, if it was one.
	place=$(sed -nE 's/.*\b(epc|RIP) *: .* ([^ ]+) \[([^] ]*)\].*/\3, \2/p' \
		"$log" | head -n 1)
	say "boot.sh: the kernel came to harm${place:+ in $place};" \
		"console: $log"
	exit 3
fi
case $status in
124 | 137)
	[ -n "$show" ] || tail -n 20 "$log" >&2
	say "boot.sh: the board was stopped at the limit of $limit s" \
		"(BOARD_TIMEOUT=$limit); console: $log"
	exit 124
	;;
esac
result=$(sed -n 's/^scenario: exit status \([0-9][0-9]*\)$/\1/p' "$log" |
	tail -n 1)
if [ -z "$result" ]; then
	[ -n "$show" ] || tail -n 20 "$log" >&2
	say "boot.sh: the board ended without the scenario's status" \
		"(emulator: $status); console: $log"
	exit 1
fi
if [ "$result" -ne 0 ]; then
	say "boot.sh: the scenario failed with status $result after $took s;" \
		"console: $log"
	exit "$result"
fi
say "  board: scenario passed, $took s"
