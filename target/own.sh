# SPDX-License-Identifier: GPL-2.0
# shellcheck shell=bash
# shellcheck disable=SC2154 # board.sh, which sources this, has the others
#
# Modules of one's own on the board. Sourced by board.sh.

own=$ZORVA_BUILD/own

# board_module NAME: writes the name of the module that prints the firmware's
# reports where the board looks for it, and the file's path into board_module
board_module()
{
	mkdir -p "$own"
	printf '%s\n' "$1" >"$own/board-module.new"
	board_module=$own/board-module
	cmp -s "$board_module.new" "$board_module" ||
		cp "$board_module.new" "$board_module"
	rm -f "$board_module.new"
}

# Builds zorva, the examples and the modules of M. Fills "modules" with what
# the board gets, own_modules with the names of those of M, and own_paths with
# their files.
own_build()
{
	local paths=() path name board=fw_board

	prepare module examples
	prepare_tools_once_made
	own_modules=()
	own_paths=()
	if [ ${#own_dirs[@]} -gt 0 ]; then
		"$ZORVA_ROOT/target/firmware.sh" "${own_dirs[@]}"
		mapfile -t own_paths <"$ZORVA_BUILD/firmware/modules"
	fi
	for path in "${own_paths[@]}"; do
		name=${path##*/}
		name=${name%.ko}
		own_modules+=("${name//-/_}")
		! "${cross}nm" -u "$path" |
			grep -qw zorva_debug_pr_fn_register || board=$name
	done
	board_module "$board"

	# A module of one's own takes the place of an example of its name.
	list_modules plat/linux/zorva examples
	paths=("${modules[@]}")
	modules=()
	for path in "${paths[@]}"; do
		[[ " ${own_paths[*]##*/} " == *" ${path##*/} "* ]] ||
			modules+=("$path")
	done
	modules+=("${own_paths[@]}")
}

# What the kernel has as modules of what a shared folder needs.
share_modules()
{
	local option name path

	for option in 9P_FS NET_9P_VIRTIO VIRTIO_PCI; do
		grep -q "^CONFIG_$option=[ym]\$" "$KERNEL_BUILD/.config" ||
			die "SHARE: $KERNEL_BUILD has no CONFIG_$option"
	done
	for name in virtio virtio_ring virtio_pci virtio_pci_legacy_dev \
		virtio_pci_modern_dev netfs 9pnet 9pnet_virtio 9p; do
		path=$(find "$KERNEL_BUILD" -name "$name.ko" -print -quit)
		[ -z "$path" ] || modules+=("$path")
	done
}

# own_root NAME FILE=PATH...: the board's root file system
own_root()
{
	local name=$1
	shift

	[ -z "$share" ] || share_modules
	make_root "$name" "${modules[@]}" "${own_files[@]}" \
		"$board_module=/etc/board-module" \
		"$built/examples/demo.sh=/root/demo.sh" "${tool_files[@]}" "$@"
}

# boot_own NAME OPTION...: all that depends on which board it is
boot_own()
{
	local name=$1
	shift

	boot "$name" ${share:+--share "$(cd "$share" && pwd)"} "$@"
}

# What runs when there is no SCENARIO: the modules come, what they have is
# shown, and they go.
write_scenario()
{
	cat <<END
#!/bin/sh
modules="${own_modules[*]}"
END
	cat <<'END'
status=0
back=
show()
{
	echo "# $*"
	"$@" || status=1
}

for module in $modules; do
	show modprobe "$module"
	back="$module $back"
done
sleep 1
for report in mem thread mutex.detail sem.detail msgq timer hrt; do
	echo " "
	show cat "/proc/zorva/zorva.$report"
done
echo " "
for module in $back; do
	# The module that prints the reports stays.
	[ "$module" = "$(cat /etc/board-module)" ] || show rmmod "$module"
done
exit "$status"
END
}

own_run()
{
	local log=$ZORVA_LOGS/own-console.log status=0

	[ -n "$scenario" ] || [ ${#own_dirs[@]} -gt 0 ] ||
		scenario=$built/examples/demo.sh
	build_lock
	own_build
	if [ -z "$scenario" ]; then
		write_scenario >"$own/scenario"
		scenario=$own/scenario
	fi
	own_root own "$scenario=/etc/scenario"
	boot_own own --show || status=$?
	say "  console: $log"
	return "$status"
}

own_shell()
{
	[ -t 0 ] || die "a shell needs a terminal"
	build_lock
	own_build
	name=shell.$$
	trap 'rm -f "$ZORVA_BUILD/$name.cpio.gz"' EXIT
	own_root "$name" ${scenario:+"$scenario=/root/scenario.sh"}
	flock -u 8
	boot_own "$name" --shell
}

own_module()
{
	local path

	[ ${#own_dirs[@]} -gt 0 ] || die "module: give M=DIR"
	build_lock
	"$ZORVA_ROOT/target/modules.sh" module
	"$ZORVA_ROOT/target/firmware.sh" "${own_dirs[@]}"
	while read -r path; do
		if [ -n "$share" ]; then
			cp "$path" "$share/"
			path=$share/${path##*/}
		fi
		ls -l "$path"
	done <"$ZORVA_BUILD/firmware/modules"
}

own_test()
{
	local log=$ZORVA_LOGS/module-test-console.log status=0

	build_lock
	own_build
	{
		echo "board=$(cat "$board_module")"
		echo "modules='${own_modules[*]}'"
	} >"$own/module-test.conf"
	own_root module-test \
		"$own/module-test.conf=/etc/module-test" \
		"$ZORVA_ROOT/target/rootfs/module-test=/etc/scenario"
	# What it says is in the log, and told with the rest.
	boot_own module-test >"$own/module-test.boot" 2>&1 || status=$?
	"$ZORVA_ROOT/target/module-test.sh" "$log" "$status" \
		"$own/module-test.boot" "${own_paths[@]}"
}

# The kernel tree that is named need not be built, nor the module.
show_info()
{
	local module=$built/plat/linux state=built define=

	[ -z "${ZORVA_COMPONENTS-}" ] ||
		define=" -DZORVA_COMPONENT_LIST='\"$ZORVA_COMPONENTS\"'"
	[ -f "$module/zorva/zorva.ko" ] ||
		state="not built yet: make module"
	cat <<END
# zorva, and what modules that use it are built with ($state)
ZORVA_VERSION=$(cat "$ZORVA_ROOT/VERSION")
KERNEL_BUILD=$KERNEL_BUILD
ZORVA=$built
ZORVA_KO=$module/zorva/zorva.ko
ZORVA_SYMBOLS=$module/zorva/Module.symvers
ZORVA_INCLUDE=$module/include
ZORVA_COMPONENTS=${ZORVA_COMPONENTS:-$module/include/zorva/components.def}
ARCH=$arch
CROSS_COMPILE=$cross

# The last line of your Kbuild file:
#	include \$(ZORVA)/plat/linux/zorva.mk
# and, where it is:
make -C $KERNEL_BUILD M=\$PWD ARCH=$arch CROSS_COMPILE=$cross \\
	ZORVA=$built${ZORVA_COMPONENTS:+ ZORVA_COMPONENTS=$ZORVA_COMPONENTS} modules

# Without zorva.mk:
#	ccflags-y += -I$module/include$define
make -C $KERNEL_BUILD M=\$PWD ARCH=$arch CROSS_COMPILE=$cross \\
	KBUILD_EXTRA_SYMBOLS=$module/zorva/Module.symvers modules
END
}
