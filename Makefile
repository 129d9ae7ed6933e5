# SPDX-License-Identifier: GPL-2.0
#
# Everything is made under build/; the board's kernel and BusyBox go to a
# cache outside the checkout, once for each configuration.
#
# KERNEL_BUILD=DIR     build and boot with this 5.10 kernel tree instead
# KERNEL_OPTS=...      options of target/kernel/build.sh for the board's own
# ZORVA_COMPONENTS=F   the firmware's own table of components
# BOARD_TIMEOUT=S      how long the board may run
# BOARD_ARGS=...       more options of target/boot.sh
# SECONDS=S SEED=N     of the soak: how long, and what it decides by

KERNEL_BUILD ?=
KERNEL_OPTS ?=
kernel_dir = $(or $(KERNEL_BUILD),$(shell \
	target/kernel/build.sh $(KERNEL_OPTS) --print-dir))
with_kernel = KERNEL_BUILD='$(kernel_dir)'

ifdef ZORVA_COMPONENTS
override ZORVA_COMPONENTS := $(abspath $(ZORVA_COMPONENTS))
export ZORVA_COMPONENTS
endif
ifdef KERNEL_BUILD
override KERNEL_BUILD := $(abspath $(KERNEL_BUILD))
endif
export BOARD_TIMEOUT BOARD_ARGS

.NOTPARALLEL:

.PHONY: help
help: ## what can be made (this)
	@echo 'make TARGET [KERNEL_BUILD=DIR] [ZORVA_COMPONENTS=FILE]'
	@echo
	@sed -n 's/^\([a-z-]*\):.*## \(.*\)/\1\t\2/p' Makefile | expand -t 14

.PHONY: run
run: kernel ## boot the board and show the example firmware at work
	@$(with_kernel) target/board.sh run

.PHONY: shell
shell: kernel ## boot the board and give a shell on it
	@$(with_kernel) target/board.sh shell

.PHONY: test
test: deps kernel ## lint, unit and target-test, with one summary
	@$(with_kernel) target/test-all.sh

.PHONY: unit
unit: ## the tests on this machine, against a fake kernel
	@target/install-deps.sh unit
	@tests/unit/run.sh

.PHONY: target-test
target-test: kernel ## the tests on the board
	@$(with_kernel) target/board.sh test

.PHONY: test-kernels
test-kernels: kernel ## target-test on the debug kernel and the stock kernel
	@tests/target/kernels.sh

.PHONY: soak
soak: kernel ## all services at once, at random, against a model
	@$(with_kernel) tests/soak/run.sh $(or $(SECONDS),60) $(SEED)

.PHONY: lint
lint: ## format, static checks, shell scripts
	@target/install-deps.sh lint
	@tests/lint.sh

.PHONY: bench
bench: kernel ## instructions of each call on the board, against limits
	@target/install-deps.sh bench
	@$(with_kernel) bench/run.sh $(BENCH_ARGS)

.PHONY: module
module: kernel ## build/target/plat/linux/zorva/zorva.ko
	@$(with_kernel) target/modules.sh module
	@ls -l build/target/plat/linux/zorva/*.ko

.PHONY: kernel
kernel: ## the board's kernel, or a look at KERNEL_BUILD
	@target/install-deps.sh target
ifdef KERNEL_BUILD
	@test -f $(KERNEL_BUILD)/Module.symvers || \
		{ echo '$(KERNEL_BUILD): not a built kernel tree'; false; }
else
	@target/kernel/build.sh $(KERNEL_OPTS)
endif

.PHONY: deps
deps: ## install the Debian packages that are missing
	@target/install-deps.sh target unit lint

.PHONY: clean
clean: ## remove build/; the cache stays
	rm -rf build
	@echo "The kernel and BusyBox stay in the cache: rm -rf" \
		"$${ZORVA_CACHE:-$${XDG_CACHE_HOME:-~/.cache}/zorva}"
