# SPDX-License-Identifier: GPL-2.0-only
# Entry points for people. Each target installs the packages it needs and builds what is out of
# date.

BUILD ?= build
JOBS ?= $(shell nproc)

CMAKE_FLAGS := -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo
# Sanitizer builds need line numbers, not speed; this halves the build time.
TEST_FLAGS := -DCMAKE_CXX_FLAGS_RELWITHDEBINFO="-O1 -g1"
WHOLE_FLAGS := -DCMAKE_C_COMPILER=gcc -DCMAKE_CXX_COMPILER=g++ -DTARN_PCH=OFF \
	-DCMAKE_CXX_FLAGS_RELWITHDEBINFO=-O0 -DTARN_WHOLE_PROGRAM=ON
CLANG_FLAGS := -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ -DTARN_PCH=OFF
# The trace that make run hunts in, and perhaps the one cache to look at.
TRACE ?= examples/slow-leak.ftrace.xz
CACHE ?=

# The kernel tree that make ko builds for, and the variables it passes on.
KDIR ?=
KO_FLAGS = $(foreach v,ARCH CROSS_COMPILE LLVM KBUILD_EXTRA_SYMBOLS TARN_PLATFORM,$(if $($(v)),$(v)="$($(v))"))
# KERNEL selects the lab's kernel: plain, debug (it checks itself; DEBUG=1 for short) or phone (as
# strict as a production phone's; MTE=1 gives it memory tags, too). SCENARIO selects the scenarios
# whose names contain it.
KERNEL ?= $(if $(filter-out 0,$(DEBUG)),debug,plain)
LAB = $(BUILD)/lab/$(KERNEL)
LAB_RUN = lab/run.sh --kernel $(KERNEL)$(if $(filter-out 0,$(MTE)), --tags) --out $(LAB)
LAB_PARTS = "$$(lab/build_kernel.sh $(KERNEL))" $(LAB)/ko $(BUILD)/arm64/bin
SCENARIO ?=

.PHONY: help run test check bench stats fuzz tidy one-definition format-check format clean deps \
	deps-check \
	deps-lab ko device lab lab-shell lab-build other-kernels

help:
	@echo "make run     hunt a slab leak in a trace recorded on a real kernel"
	@echo "make test    run all tests (ASan+UBSan, TSan) and check the lock annotations"
	@echo "make check   run clang-format and clang-tidy, and find types or symbols defined twice"
	@echo "make bench   measure the hot paths against a straightforward implementation"
	@echo "make ko KDIR=<kernel tree>   build the module for a configured kernel tree"
	@echo "make other-kernels   compile the module for Linux 6.1 and 6.12, with GCC and Clang"
	@echo "make device  build a static tarnctl for an arm64 device"
	@echo "make lab     run all scenarios on a real kernel in QEMU (DEBUG=1: a debugging kernel;"
	@echo "             KERNEL=phone: one as strict as a phone's, with MTE=1 also with memory tags)"
	@echo "make lab-shell   open a shell on that kernel with everything loaded"
	@echo "make stats   count lines of code and tests"
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
	@echo "Lock annotations are correct (clang -Wthread-safety)."

check: format-check tidy one-definition

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
	@scripts/install_deps.sh ko "$(CROSS_COMPILE)" "$(LLVM)"
	@scripts/build_ko.sh "$(KDIR)" $(BUILD)/ko $(KO_FLAGS)

device:
	@scripts/install_deps.sh device
	@scripts/quiet_build.sh $(BUILD)/arm64 all -- $(CMAKE_FLAGS) -DCMAKE_BUILD_TYPE=MinSizeRel \
		-DCMAKE_TOOLCHAIN_FILE=cmake/aarch64-linux-gnu.cmake -DTARN_DEVICE_ONLY=ON

deps-lab:
	@scripts/install_deps.sh lab $(KERNEL)

lab-build: deps-lab device
	@kernel=$$(lab/build_kernel.sh $(KERNEL)) && \
		scripts/build_ko.sh "$$kernel" $(LAB)/ko ARCH=arm64 \
		$(if $(filter phone,$(KERNEL)),LLVM=-19,CROSS_COMPILE=aarch64-linux-gnu-)

lab: lab-build
	@$(LAB_RUN) $(LAB_PARTS) $(SCENARIO)

lab-shell: lab-build
	@$(LAB_RUN) --shell $(LAB_PARTS)

other-kernels:
	@scripts/install_deps.sh other-kernels
	@lab/other_kernels.sh $(BUILD)/other-kernels

SOURCES = $(shell git ls-files '*.cpp' '*.h' '*.c')

format-check: deps-check
	@clang-format --dry-run --Werror $(SOURCES) && echo "clang-format: clean"

format: deps-check
	@clang-format -i $(SOURCES)

tidy: deps-check
	@scripts/quiet_build.sh $(BUILD)/clang module_objects hosted_kernel -- $(CMAKE_FLAGS) \
		$(CLANG_FLAGS)
	@scripts/tidy.sh $(BUILD)/clang $(JOBS)

one-definition: deps-check
	@scripts/quiet_build.sh $(BUILD)/whole whole_program -- $(CMAKE_FLAGS) $(WHOLE_FLAGS)
	@echo "Each type and symbol is defined once."

stats:
	@scripts/stats.sh

clean:
	rm -rf $(BUILD)
