# SPDX-License-Identifier: GPL-2.0
#
# For the Kbuild file of every module that uses zorva, as its last line:
#
#	include <zorva>/plat/linux/zorva.mk
#
# It brings the path of the public headers, the list of components, what zorva
# exports, and the rule for C++: a .cpp file is named among the objects of a
# module like a .c file. zorva has to be built first: what it exports and the
# list that it was made with lie beside it, or, when zorva was installed, where
# "make modules_install" or DKMS has kept them for the kernel.
#
# ZORVA=<path>             another copy of zorva, the one that was built
# ZORVA_COMPONENTS=<path>  the firmware's own list of components
# INSTALL_MOD_PATH=<path>  where the zorva of another machine was installed
# cxxflags-y               more flags for the C++ of this directory
#
# zorva's own Kbuild file includes it with zorva-is-built-here := y.
ifndef zorva-mk

zorva-mk := $(abspath $(lastword $(MAKEFILE_LIST)))
zorva-plat := $(if $(ZORVA),$(abspath $(ZORVA))/plat/linux,$(patsubst \
	%/,%,$(dir $(zorva-mk))))
zorva-scripts := $(patsubst %/,%,$(dir $(zorva-mk)))/scripts
zorva-built := $(zorva-plat)/zorva

# What is installed has no sources of the module beside it.
ifeq ($(wildcard $(zorva-built)/Kbuild),)
zorva-kept := $(INSTALL_MOD_PATH)/lib/modules/$(KERNELRELEASE)/zorva \
	/var/lib/dkms/zorva/kernel-$(KERNELRELEASE)-*/built
zorva-built := $(firstword $(patsubst %/components.rows,%,$(wildcard \
	$(addsuffix /components.rows,$(zorva-kept)))) $(zorva-kept))
endif

# --- The headers and the list of components

zorva-list := $(abspath $(or $(ZORVA_COMPONENTS), \
	$(zorva-plat)/include/zorva/components.def))
zorva-include := -I$(zorva-plat)/include
ifneq ($(ZORVA_COMPONENTS),)
zorva-include += -DZORVA_COMPONENT_LIST='"$(zorva-list)"'
endif

# In this directory and those below it.
subdir-ccflags-y += $(zorva-include)

# --- What zorva exports

ifndef zorva-is-built-here
KBUILD_EXTRA_SYMBOLS += $(zorva-built)/Module.symvers
endif

# --- What would go wrong later, and where nobody looks for it

zorva-components = $(shell $(CONFIG_SHELL) $(zorva-scripts)/components.sh $1 \
	"$(CC)" "$(zorva-list)" $2 2>&1)

ifdef zorva-is-built-here
zorva-refusal = $(call zorva-components,check)
else
zorva-refusal = $(if $(wildcard $(zorva-built)/components.rows),$(call \
	zorva-components,compare,$(zorva-built)/components.rows),zorva is not \
	built: there is no $(zorva-built)/components.rows)
endif

# Only where something is compiled: "make clean" needs no list.
ifneq ($(filter %Makefile.build,$(MAKEFILE_LIST)),)
zorva-refused := $(strip $(zorva-refusal))
ifneq ($(zorva-refused),)
$(error $(zorva-refused))
endif
endif

# --- C++

# The kernel knows no C++ compiler of its own.
ifdef CONFIG_CC_IS_CLANG
cxx-clang := $(firstword $(CC))
CXX := $(subst $(notdir $(cxx-clang)),$(subst clang,clang++,$(notdir \
	$(cxx-clang))),$(cxx-clang))
else
CXX := $(CROSS_COMPILE)g++
endif

# What the kernel gives to a C object of a module, its sanitizers and tracers
# included, less what is only for C, less the compiler's plug-ins.
cxx-drop := -std=% -W%-prototypes -Wdeclaration-after-statement \
	-Wno-pointer-sign -Wold-style-definition -Wjump-misses-init \
	-Werror=implicit-% -Werror=strict-prototypes -Werror=designated-init \
	-Werror=incompatible-pointer-types -Wno-designated-init \
	-Wno-override-init -Wno-incompatible-pointer-types-% -Wenum-conversion \
	-Wno-enum-conversion -Wno-discarded-qualifiers -Wno-old-style-% \
	-fplugin=% -fplugin-arg-% -D%_PLUGIN
cxx-flags = $(filter-out $(cxx-drop), $(NOSTDINC_FLAGS) $(cxx-isystem) \
	$(_c_flags) $(modkern_cflags)) \
	-std=gnu++20 -ffreestanding -fno-exceptions -fno-rtti \
	-fno-threadsafe-statics -fno-use-cxa-atexit \
	-fno-asynchronous-unwind-tables -fno-unwind-tables \
	-Wall -Wextra -Wno-unused-parameter -Wvla \
	-fno-delete-null-pointer-checks -fno-strict-aliasing \
	$(if $(CONFIG_CC_IS_CLANG),-fno-strict-overflow,-fwrapv) \
	$(if $(CONFIG_ARM64),-mno-outline-atomics) \
	-D__KERNEL__ -DMODULE $(cxx-no-debug) $(cxxflags-y)

# The kernel's tool that makes types for BPF of a module's debug information
# gives up at that of C++, and is there with the kernel's own types only.
cxx-no-debug = $(if $(CONFIG_DEBUG_INFO_BTF_MODULES),$(if $(wildcard \
	$(objtree)/vmlinux),-g0))

# The compiler's own headers, which kernels of 5.16 and later shut out.
ifeq ($(filter -isystem,$(NOSTDINC_FLAGS)),)
cxx-isystem := -isystem $(shell $(CXX) -print-file-name=include)
endif

# Fails, and takes the object away, when it needs what only a run-time of C++
# has, or what is not in the list of symbols of the second argument.
cxx-check = $(CONFIG_SHELL) $(zorva-scripts)/check_object.sh "$(NM)" \
	"$(OBJDUMP)" $1 "$2" "$(CONFIG_CONSTRUCTORS)" || { rm -f $1; false; }

quiet_cmd_cxx_o_cpp = CXX [M]  $@
      cmd_cxx_o_cpp = $(CXX) -Wp,-MMD,$(depfile) $(cxx-flags) -c -o $@ $< \
	$(if $(cxx-objtool-appended),$(cmd_objtool))

quiet_cmd_cxx_check =
      cmd_cxx_check = $(call cxx-check,$@)

# objtool is a command of its own, or from 5.17 on the end of the compiler's.
cxx-objtool-appended = $(filter ;,$(firstword $(cmd_objtool)))

# A function that the compiler did not make part of its callers stands in each
# object that has some, and the linker takes one and drops the others. It refuses
# to where the kernel keeps tables of places in the code, whose rows name those
# as well: there all stay.
quiet_cmd_cxx_ungroup =
      cmd_cxx_ungroup = $(if $(or $(CONFIG_OBJTOOL),$(CONFIG_STACK_VALIDATION), \
	$(CONFIG_FTRACE_MCOUNT_RECORD)),$(OBJCOPY) --remove-section=.group $@)

# What the kernel does to its own objects is done to these.
define rule_cxx_o_cpp
	$(call cmd_and_fixdep,cxx_o_cpp)
	$(if $(cxx-objtool-appended),,$(call cmd,objtool))
	$(call cmd,record_mcount)
	$(call cmd,cxx_ungroup)
	$(call cmd,cxx_check)
endef

$(obj)/%.o: $(src)/%.cpp $(zorva-scripts)/check_object.sh FORCE
	$(call if_changed_rule,cxx_o_cpp)

endif
