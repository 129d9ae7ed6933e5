# SPDX-License-Identifier: GPL-2.0
#
# Everything is made under build/; the board's kernel and BusyBox go to a
# cache outside the checkout, once for each configuration.
#
# "make help" shows these as well:
#
# KERNEL_BUILD=DIR     build and boot with this 5.10 kernel tree instead
# BOARD=uml            the newest kernel as a program of this machine, under
#                      KASAN, instead of the board
# KERNEL_OPTS=...      options of target/kernel/build.sh for the board's own
# ZORVA_COMPONENTS=F   the firmware's own table of components
# M='DIR...'           directories with modules of your own, for run, shell,
#                      module and module-test
# SCENARIO=F           a shell script for the board to run
# FILES='F=/PATH...'   more files for the board
# SHARE=DIR            a folder of this machine that the board has at /mnt
# KERNELS="5.10 6.12"  of test-kernels: only these lines (6.1 newest packaged)
# ARCHES="mips um"     of test-kernels: only these (arm64 x86_64)
# BOARD_TIMEOUT=S      how long the board may run
# BOARD_ARGS=...       more options of target/boot.sh
# BOARD_ICOUNT=N       in the tests an instruction takes 2^N ns (4); empty:
#                      the board runs by the host's time
# SECONDS=S SEED=N     of the soak: how long (test-kernels has it, too), and
#                      what it decides by
# SECONDS=S            of the fuzzers: how long each of them runs
# ORDERS=N             of unit: in how many orders its tasks run (10)
# SEED=N COUNT=N       of the mutants: what draws them, and how many (1, 500)
# MUTANTS_ARGS=...     more options of tests/mutants/run.sh
# FUZZ_ARGS=--keep     add what they have reached to tests/fuzz/corpus
# BENCH_ARGS=--update  put what bench has measured into docs/
# DESTDIR=D PREFIX=P   of install, uninstall: a root, what below it (/usr/local)
# INSTALL_MOD_PATH=D   the root that modules_install installs into
# MINUTES=N            of test-all: what would end later is left out
# CROSS_COMPILE=P      prefix of the cross compiler (mips-linux-gnu-)
# ZORVA_CACHE=DIR      where kernels and BusyBox are kept (~/.cache/zorva)

KERNEL_BUILD ?=
KERNEL_OPTS ?=

# Another machine than the board: the newest kernel as a program of this one.
ifdef BOARD
ifneq ($(BOARD),uml)
$(error BOARD=$(BOARD): there is uml, and without it the board)
endif
KERNEL_OPTS := --line newest --arch um
export ZORVA_BUILD := $(CURDIR)/build/um
endif

with_kernel = KERNEL_BUILD="$(or $(KERNEL_BUILD),$$(\
	target/kernel/build.sh $(KERNEL_OPTS) --print-dir))"

# Beyond here make itself would take such a name for several.
one_name = $(if $(word 2,$($1)),$(error $1=$($1): a name with blanks))

$(call one_name,ZORVA_COMPONENTS)
$(call one_name,KERNEL_BUILD)
$(call one_name,SCENARIO)
$(call one_name,SHARE)
ifdef ZORVA_COMPONENTS
override ZORVA_COMPONENTS := $(abspath $(ZORVA_COMPONENTS))
export ZORVA_COMPONENTS
ifeq ($(wildcard $(ZORVA_COMPONENTS)),)
$(error ZORVA_COMPONENTS=$(ZORVA_COMPONENTS): no such file)
endif
endif
ifdef KERNEL_BUILD
override KERNEL_BUILD := $(abspath $(KERNEL_BUILD))
endif
export BOARD_TIMEOUT BOARD_ARGS M SCENARIO FILES SHARE

.NOTPARALLEL:

.PHONY: help
help: ## what can be made (this)
	@echo 'make TARGET [VARIABLE=VALUE]...'
	@echo
	@sed -n 's/^\([a-z_-]*\):.*## \(.*\)/\1\t\2/p' Makefile | expand -t 17
	@echo
	@sed -n -e '/^$$/q' -e '/^# KERNEL_BUILD=/,$$s/^# //p' Makefile

.PHONY: run
run: kernel ## boot the board and show the example firmware, or M, at work
	@$(with_kernel) target/board.sh run

.PHONY: shell
shell: kernel ## boot the board and give a shell on it
	@$(with_kernel) target/board.sh shell

.PHONY: test
test: deps kernel ## lint, unit and target-test, with one summary
	@$(with_kernel) target/test-all.sh

# From here on, what is installed and built first included.
ifdef MINUTES
deadline := $(shell expr $$(date +%s) + 60 \* $(MINUTES))
endif

.PHONY: test-all
test-all: deps kernel ## all that, and what is slow: packages, pages, browser
	@target/install-deps.sh kit gdb docs docs-test install packages \
		report fleet
	@$(with_kernel) target/test-all.sh --slow $(deadline)

.PHONY: unit
unit: ## the tests on this machine, against a fake kernel
	@target/install-deps.sh unit
	@ORDERS=$(or $(ORDERS),10) tests/unit/run.sh

.PHONY: host-test
host-test: ## the library for tests of firmware on this machine, installed
	@target/install-deps.sh host
	@tests/host/run.sh

.PHONY: coverage
coverage: ## what of the module the unit tests run, against the list
	@target/install-deps.sh unit coverage
	@tests/unit/coverage.sh

.PHONY: mutants
mutants: ## changes of the module, one at a time, that a unit test must notice
	@target/install-deps.sh unit mutants
	@tests/mutants/run.sh $(if $(SEED),--seed $(SEED)) \
		$(if $(COUNT),--count $(COUNT)) $(MUTANTS_ARGS)

.PHONY: fuzz
fuzz: ## hostile sequences of calls on this machine, against a fake kernel
	@target/install-deps.sh unit fuzz
	@tests/fuzz/run.sh $(FUZZ_ARGS) $(or $(SECONDS),60)
	@target/install-deps.sh tools
	@tools/zorva/fuzz.sh $(FUZZ_ARGS) $(or $(SECONDS),60)

.PHONY: target-test
target-test: kernel ## the tests on the board
	@$(with_kernel) target/board.sh test

.PHONY: uml-test
uml-test: ## the suites on the kernel as a program of this machine, under KASAN
	@$(MAKE) --no-print-directory kernel BOARD=uml
	@ZORVA_BUILD=$(CURDIR)/build/um KERNEL_BUILD="$$(target/kernel/build.sh \
		--line newest --arch um --print-dir)" target/board.sh suites

.PHONY: kit-test
kit-test: kernel ## modules of one's own on the board, and the page about them
	@target/install-deps.sh kit
	@$(with_kernel) tests/kit/run.sh

.PHONY: test-kernels
test-kernels: ## target-test on other kernels and machines, with one table
	@target/install-deps.sh target kernels
	@KERNELS="$(KERNELS)" ARCHES="$(ARCHES)" SOAK_SECONDS="$(SECONDS)" \
		tests/target/kernels.sh

.PHONY: soak
soak: kernel ## all services at once, at random, against a model
	@$(with_kernel) tests/soak/run.sh $(or $(SECONDS),60) $(SEED)

.PHONY: gdb-test
gdb-test: kernel ## the reports of a halted board, by the debugger
	@target/install-deps.sh gdb
	@$(with_kernel) tests/gdb/run.sh

.PHONY: lint
lint: ## format, static checks, shell scripts
	@target/install-deps.sh lint
	@tests/lint.sh

.PHONY: tools
tools: ## the inspector: build/tools/zorva, and build/tools/board/zorva
	@target/install-deps.sh target tools
	@target/tools.sh desk board
	@tools/zorva/man.sh build/tools/zorva build/tools/man
	@ls -l build/tools/zorva build/tools/board/zorva

.PHONY: debugger
debugger: kernel ## build/tools/gdb: the reports of a halted kernel, by gdb
	@target/install-deps.sh gdb
	@$(with_kernel) target/tools.sh debugger
	@ls -l build/tools/gdb

.PHONY: tools-test
tools-test: ## the tests of the inspector
	@target/install-deps.sh tools
	@tools/zorva/run_tests.sh

.PHONY: tools-bench
tools-bench: tools kernel ## the inspector on a million blocks, and on the board
	@tools/zorva/bench.py build/tools/zorva
	@$(with_kernel) tools/zorva/bench_board.sh

.PHONY: report-test
report-test: ## the page of zorva report, as a browser shows it
	@target/install-deps.sh tools report
	@target/tools.sh desk
	@tests/report/run.py build/tools/zorva tools/zorva/samples \
		build/report $(REPORT_ARGS)

.PHONY: fleet
fleet: ## two boards in trouble, and a Prometheus that watches them
	@target/install-deps.sh target tools fleet
	@target/fleet.sh start

.PHONY: fleet-stop
fleet-stop: ## the end of these
	@target/fleet.sh stop

.PHONY: fleet-test
fleet-test: ## alerts, metrics, a dead board: what the pages about them say
	@target/install-deps.sh target tools gdb fleet
	@tests/fleet/run.sh

.PHONY: bench
bench: kernel ## instructions of each call on the board, against limits
	@target/install-deps.sh bench
	@$(with_kernel) bench/run.sh $(BENCH_ARGS)

.PHONY: docs
docs: kernel ## the texts and the reference as pages and manual pages
	@target/install-deps.sh docs
	@$(with_kernel) docs/site/build.sh

.PHONY: docs-test
docs-test: docs ## links, and the pages as a browser and man show them
	@target/install-deps.sh docs-test
	@docs/site/test.sh

.PHONY: install
install: ## headers, zorva.mk, the library for this machine, manual pages
	@target/install-deps.sh install
	@DESTDIR='$(DESTDIR)' PREFIX='$(PREFIX)' packaging/install.sh install

.PHONY: modules_install
modules_install: kernel ## zorva.ko into INSTALL_MOD_PATH
	@test -n '$(INSTALL_MOD_PATH)$(KERNEL_BUILD)' || { echo "modules_install:" \
		"give INSTALL_MOD_PATH= or KERNEL_BUILD="; false; }
	@INSTALL_MOD_PATH='$(INSTALL_MOD_PATH)' $(with_kernel) \
		packaging/install.sh modules

.PHONY: uninstall
uninstall: ## take away what install and modules_install have installed
	@DESTDIR='$(DESTDIR)' PREFIX='$(PREFIX)' \
		INSTALL_MOD_PATH='$(INSTALL_MOD_PATH)' packaging/install.sh uninstall

.PHONY: install-test
install-test: kernel ## install, build the examples from there, uninstall
	@target/install-deps.sh install host
	@$(with_kernel) tests/packaging/install.sh

.PHONY: deb
deb: ## the Debian packages, in build/deb
	@target/install-deps.sh install packages
	@packaging/deb.sh

.PHONY: deb-test
deb-test: deb ## install, use and remove them in a minimal root, as root
	@tests/packaging/deb.sh

.PHONY: module
module: kernel ## build/target/plat/linux/zorva/zorva.ko, or the modules of M
	@$(with_kernel) target/board.sh module

.PHONY: module-test
module-test: kernel ## the modules of M on the board: their tests, what they leave
	@$(with_kernel) target/board.sh module-test

.PHONY: info
info: ## paths and flags for builds of your own
	@$(with_kernel) target/board.sh info

.PHONY: kernel
kernel: ## the board's kernel, or a look at KERNEL_BUILD
	@target/install-deps.sh target tools
	@target/board.sh check
ifdef KERNEL_BUILD
	@test -f '$(KERNEL_BUILD)/Module.symvers' || \
		{ echo '$(KERNEL_BUILD): not a built kernel tree'; false; }
else
	@target/kernel/build.sh $(KERNEL_OPTS)
endif

.PHONY: deps
deps: ## install the Debian packages that are missing
	@target/install-deps.sh target tools unit host lint

.PHONY: clean
clean: ## remove build/; the cache stays
	rm -rf build
	@echo "The kernel and BusyBox stay in the cache: rm -rf" \
		"$${ZORVA_CACHE:-$${XDG_CACHE_HOME:-~/.cache}/zorva}"
