# SPDX-License-Identifier: GPL-2.0-only
# The front door. Each target installs what it needs and builds what is not built.

BUILD ?= build
JOBS ?= $(shell nproc)

CMAKE_FLAGS := -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo
# Sanitized code needs line numbers, not speed: half the time to build.
TEST_FLAGS := -DCMAKE_CXX_FLAGS_RELWITHDEBINFO="-O1 -g1"
CLANG_FLAGS := -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ -DTARN_PCH=OFF
# What make run hunts in; an empty CACHE leaves the choice of the cache to the module.
TRACE ?= examples/fd-leak.ftrace.xz
CACHE ?= filp

# What make ko builds for, and with which tools.
KDIR ?=
KO_FLAGS = $(foreach v,ARCH CROSS_COMPILE LLVM KBUILD_EXTRA_SYMBOLS TARN_PLATFORM,$(if $($(v)),$(v)="$($(v))"))
# The lab's kernel: DEBUG=1 takes the one that checks itself. SCENARIO runs those with that name only.
FLAVOUR := $(if $(filter-out 0,$(DEBUG)),debug,plain)
LAB = $(BUILD)/lab/$(FLAVOUR)
LAB_RUN = lab/run.sh $(if $(filter debug,$(FLAVOUR)),--debug) --out $(LAB)
LAB_PARTS = "$$(lab/build_kernel.sh $(FLAVOUR))" $(LAB)/ko $(BUILD)/arm64/bin
SCENARIO ?=

.PHONY: help run test check bench stats fuzz tidy format-check format clean deps deps-check \
	deps-lab ko device lab lab-shell lab-build

help:
	@echo "make run     hunt a slab leak in a recorded trace of a real kernel"
	@echo "make test    all tests, under ASan+UBSan and TSan, and the lock annotations"
	@echo "make check   clang-format and clang-tidy"
	@echo "make bench   what the hot paths cost, beside the plain way"
	@echo "make ko KDIR=<kernel tree>   the module for a configured kernel tree"
	@echo "make device  the static tarnctl for an arm64 device"
	@echo "make lab     all scenarios on a real kernel in QEMU (DEBUG=1: on one that checks itself)"
	@echo "make lab-shell   a shell in that kernel, everything loaded"
	@echo "make stats   lines of code and of tests"
	@echo "make fuzz    fuzz the trace reader for a minute"

deps:
	@scripts/install_deps.sh build

deps-check:
	@scripts/install_deps.sh check

HUNT = $(BUILD)/release/bin/tarnctl hunt --trace $(TRACE)$(if $(CACHE), --cache $(CACHE))

run: deps
	@scripts/quiet_build.sh $(BUILD)/release tarnctl tarn_mem_adapter -- $(CMAKE_FLAGS)
	@echo "\$$ $(HUNT)"
	@$(HUNT)

test: deps-check
	@scripts/quiet_build.sh $(BUILD)/asan tarnctl kernel_tests module_tests tool_tests \
		concurrent_tests -- $(CMAKE_FLAGS) \
		$(TEST_FLAGS) -DTARN_SANITIZE=address,undefined
	ctest --test-dir $(BUILD)/asan --output-on-failure --no-tests=error -j $(JOBS)
	@scripts/quiet_build.sh $(BUILD)/tsan concurrent_tests -- $(CMAKE_FLAGS) \
		$(TEST_FLAGS) -DTARN_SANITIZE=thread
	ctest --test-dir $(BUILD)/tsan --output-on-failure --no-tests=error -L concurrent -j $(JOBS)
	@scripts/quiet_build.sh $(BUILD)/clang module_objects hosted_kernel -- $(CMAKE_FLAGS) \
		$(CLANG_FLAGS)
	@echo "Lock annotations hold (clang -Wthread-safety)."

check: format-check tidy

bench: deps
	@scripts/quiet_build.sh $(BUILD)/bench bench -- $(CMAKE_FLAGS) -DCMAKE_BUILD_TYPE=Release \
		-DTARN_JUDGE=OFF
	@bench/run.sh $(BUILD)/bench

fuzz: deps-check
	@scripts/quiet_build.sh $(BUILD)/fuzz trace_fuzz -- $(CMAKE_FLAGS) \
		$(CLANG_FLAGS) \
		-DTARN_SANITIZE=address,undefined -DTARN_FUZZ=ON
	$(BUILD)/fuzz/bin/trace_fuzz -max_total_time=60 -max_len=65536

ko:
	@scripts/install_deps.sh ko "$(CROSS_COMPILE)"
	@scripts/build_ko.sh "$(KDIR)" $(BUILD)/ko $(KO_FLAGS)

device:
	@scripts/install_deps.sh device
	@scripts/quiet_build.sh $(BUILD)/arm64 all -- $(CMAKE_FLAGS) -DCMAKE_BUILD_TYPE=MinSizeRel \
		-DCMAKE_TOOLCHAIN_FILE=cmake/aarch64-linux-gnu.cmake -DTARN_DEVICE_ONLY=ON

deps-lab:
	@scripts/install_deps.sh lab

lab-build: deps-lab device
	@kernel=$$(lab/build_kernel.sh $(FLAVOUR)) && \
		scripts/build_ko.sh "$$kernel" $(LAB)/ko ARCH=arm64 CROSS_COMPILE=aarch64-linux-gnu-

lab: lab-build
	@$(LAB_RUN) $(LAB_PARTS) $(SCENARIO)

lab-shell: lab-build
	@$(LAB_RUN) --shell $(LAB_PARTS)

SOURCES = $(shell git ls-files '*.cpp' '*.h' '*.c')

format-check: deps-check
	@clang-format --dry-run --Werror $(SOURCES) && echo "clang-format: clean"

format: deps-check
	@clang-format -i $(SOURCES)

tidy: deps-check
	@scripts/quiet_build.sh $(BUILD)/clang module_objects hosted_kernel -- $(CMAKE_FLAGS) \
		$(CLANG_FLAGS)
	@scripts/tidy.sh $(BUILD)/clang $(JOBS)

stats:
	@scripts/stats.sh

clean:
	rm -rf $(BUILD)
