#!/bin/sh
# SPDX-License-Identifier: GPL-2.0
#
# keep.sh KERNEL ARCH: run by DKMS in the tree where it has built zorva, before
# it takes that away. Keeps beside the module what zorva.mk looks for; it goes
# with the module.
set -eu

mkdir -p "../$1/$2/built"
cp plat/linux/zorva/Module.symvers plat/linux/zorva/components.rows \
	"../$1/$2/built/"
