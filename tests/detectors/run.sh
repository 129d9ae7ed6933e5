#!/bin/bash
# SPDX-License-Identifier: GPL-2.0
#
# Plants a fault of each kind into a copy of the module's C++, and looks
# whether the kernel's own detector reports it, in the function where it is:
# the detectors see what the C++ does only when its objects get their flags.
set -euo pipefail

# shellcheck source=target/lib.sh
. "$(dirname "$0")/../../target/lib.sh"

usage()
{
	cat <<END
usage: run.sh [COUNTS]

  COUNTS  a file for "PASSED FAILED"

Environment: KERNEL_BUILD (a kernel tree with KASAN, UBSAN, KCSAN or CFI).
END
}

case ${1-} in
-h | --help)
	usage
	exit
	;;
esac
if [ $# -gt 1 ] || [ -z "${KERNEL_BUILD-}" ]; then
	usage >&2
	exit 2
fi
counts=${1-}
kernel_facts "$KERNEL_BUILD"
out=$ZORVA_BUILD/detectors
log=$ZORVA_LOGS/detectors-console.log
passed=0
failed=0

has_option()
{
	grep -q "^CONFIG_$1=y" "$KERNEL_BUILD/.config"
}

# plant FILE FROM TO: in the copy, one line for another
plant()
{
	local file=$copy/plat/linux/zorva/$1 line

	line=$(grep -nF -e "$2" "$file" | cut -d : -f 1)
	[[ $line =~ ^[0-9]+$ ]] || die "$1: not one line with '$2'"
	{
		head -n $((line - 1)) "$file"
		printf '%s\n' "$3"
		tail -n +$((line + 1)) "$file"
	} >"$file.new"
	mv "$file.new" "$file"
}

# Each plants its fault, which a block that comes and goes provokes.
overflow()
{
	plant zorva_mem.cpp '*reinterpret_cast<u32 *>(user_area(block) + rounded(size)) =' \
		'	*reinterpret_cast<u32 *>(user_area(block) + rounded(size) + 8) ='
}

# In the first of the two kinds of free.
use_after_free()
{
	local file=$copy/plat/linux/zorva/zorva_mem.cpp

	sed -i '0,/^\tkfree(block);$/s//\tkfree(block);\n\tblock->line = compId;/' \
		"$file"
	grep -q '^	block->line = compId;$' "$file" ||
		die "zorva_mem.cpp: no free"
}

shift_out_of_range()
{
	plant zorva_mem.cpp '	block->line = line;' \
		'	block->line = line << (size + 31);'
}

# A count that two processors may raise at the same time, so often that one of
# the few accesses that are watched is one of these.
race()
{
	plant zorva_mem.cpp '	zorva_mem_usage_t &usage = _zorvaMallocMemUsage[compId];' \
		'	zorva_mem_usage_t &usage = _zorvaMallocMemUsage[compId]; for (u32 i = 0; i < 1000; ++i) { ++usage.allocCount; asm volatile("" : : : "memory"); }'
}

# The kernel calls a function of the module's that has another type.
called_by_another_type()
{
	plant zorva_lkm.cpp '	const int result = single_open_size(file, show, priv, buffer_size);' \
		'	const int result = single_open_size(file, reinterpret_cast<int (*)(struct seq_file *, void *)>(make_directory), priv, buffer_size); (void)show;'
}

# The module calls a function of its own that has another type.
call_of_another_type()
{
	plant zorva_lkm.cpp '	dump(seq);' \
		'	reinterpret_cast<int (*)(struct seq_file *, int)>(dump)(seq, 1);'
}

build_copy()
{
	rm -rf "$copy"
	mkdir -p "$copy"
	cp -r "$ZORVA_BUILD/target/plat" "$ZORVA_BUILD/target/tests" "$copy/"
	"$1"
	make -C "$KERNEL_BUILD" M="$copy/plat/linux/zorva" ARCH="$arch" \
		CROSS_COMPILE="$cross" ${clang:+LLVM=$clang} KCFLAGS=-g modules
}

write_scenario()
{
	cat <<'END'
#!/bin/sh
modules=/lib/modules/zorva
insmod $modules/zorva.ko && insmod $modules/zorva_test_support.ko &&
	insmod $modules/zorva_lab.ko || exit
for round in 1 2 3; do
	echo "alloc 10 40" >/sys/kernel/debug/zorva_lab
	printf free >/sys/kernel/debug/zorva_lab
done
[ ! -f $modules/zorva_soak.ko ] ||
	insmod $modules/zorva_soak.ko seed=1 seconds=20
cat /proc/zorva/zorva.mem
END
}

# look FAULT OPTION PATTERN [MODULE]: what has to be in the log, where the option
# is, and a module without which it does not come to it
look()
{
	local fault=$1 option=$2 pattern=$3 also=${4-}

	if ! has_option "$option"; then
		say "skipped: $fault: this kernel has no $option"
		return
	fi
	copy=$out/$fault
	step "detectors: $fault" build_copy "$fault"
	"$ZORVA_ROOT/target/rootfs/mkroot.sh" "$out/$fault.cpio.gz" \
		"$copy/plat/linux/zorva/zorva.ko" \
		"$ZORVA_BUILD/target/tests/target/zorva_test_support.ko" \
		"$ZORVA_BUILD/target/tests/target/zorva_lab.ko" \
		${also:+"$ZORVA_BUILD/target/$also"} \
		"$out/scenario=/etc/scenario"
	# The kernel comes to harm: that is what is wanted.
	"$ZORVA_ROOT/target/boot.sh" --kernel "$KERNEL_BUILD/$image" \
		--arch "$arch" --initrd "$out/$fault.cpio.gz" --log "$log" \
		--timeout "${BOARD_TIMEOUT:-300}" >/dev/null 2>&1 || true
	if grep -Eq "$pattern" "$log"; then
		say "ok: $fault: $(grep -Em 1 "$pattern" "$log")"
		passed=$((passed + 1))
	else
		say "FAILED: $fault: no line like '$pattern' in $log"
		cp "$log" "$ZORVA_LOGS/detectors-$fault.log"
		failed=$((failed + 1))
	fi
}

build_lock
mkdir -p "$out"
"$ZORVA_ROOT/target/busybox/build.sh" --arch "$arch"
"$ZORVA_ROOT/target/modules.sh" module tests soak
write_scenario >"$out/scenario"
look overflow KASAN 'BUG: KASAN: slab-out-of-bounds in zorva_malloc_track'
look use_after_free KASAN 'BUG: KASAN: slab-use-after-free in zorva_free_track'
look shift_out_of_range UBSAN_SHIFT \
	'UBSAN: shift-out-of-bounds in .*zorva_mem\.cpp'
# It takes several who allocate at the same time.
look race KCSAN 'BUG: KCSAN: data-race in .*zorva_malloc_track' \
	tests/soak/zorva_soak.ko
# 6.18: the option has another name.
cfi=CFI
has_option CFI || cfi=CFI_CLANG
look called_by_another_type "$cfi" 'CFI failure at seq_read_iter.*make_directory'
look call_of_another_type "$cfi" 'CFI failure at .*run_dump.* \[zorva\] .*zorva_mem_dump'
[ -z "$counts" ] || echo "$passed $failed" >"$counts"
say "detectors: $passed reported, $failed not"
[ "$failed" -eq 0 ] && [ "$passed" -gt 0 ]
