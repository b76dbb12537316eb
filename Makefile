# The two everyday commands:
#   make demo  - install what is missing, build, run the main job in a sandboxed
#                controller with its real TLS tunnel and web server
#   make test  - install what is missing, build, run the whole test suite
# For the controller's targets (see docs/firmware-integration.md):
#   make test-armhf      - cross build for 32-bit ARM, the whole suite under qemu-arm
#   make test-openssl11  - the whole suite against OpenSSL 1.1.1 and its openssl tool
BUILD_DIR ?= build
ARMHF_DIR ?= build-armhf
OPENSSL11_DIR ?= build-openssl11
DEMO_ROOT ?= $(CURDIR)/demo-root
JOBS ?= $(shell nproc)
# Release builds without the benchmarks: only what the suite needs; the
# native suite holds the long crash test, these a short one.
LEAN = -DCMAKE_BUILD_TYPE=Release -DBMCCERT_BENCH=OFF -DBMCCERT_SYSTEM_LINK_TEST=OFF -DBMCCERT_CRASH_KILLS=10

.PHONY: all deps build test demo bench crashtest fuzz hardening clean host-tools test-armhf test-openssl11

all: build

deps:
	bash scripts/install-deps.sh

build: deps
	cmake -S . -B $(BUILD_DIR) -DCMAKE_BUILD_TYPE=RelWithDebInfo
	cmake --build $(BUILD_DIR) -j $(JOBS)

test: build
	cd $(BUILD_DIR) && ctest --output-on-failure -j 2

demo: build
	PEBBLE_VA_NOSLEEP=1 $(BUILD_DIR)/bin/bmc-sandbox --fresh --services --private-network --acme $(DEMO_ROOT) -- bash scripts/demo.sh $(CURDIR)/$(BUILD_DIR)/bin/bmccert

bench: build
	cmake --build $(BUILD_DIR) --target bench

# Power cuts during each installation flow: KILLS (default 1000) a flow.
KILLS ?= 1000
crashtest: build
	for flow in install generate upload; do \
	  $(BUILD_DIR)/bin/bmc-sandbox --fresh --services $(BUILD_DIR)/sandbox/crash_$$flow -- \
	    bash tests/crash/crash_test.sh $(CURDIR)/$(BUILD_DIR)/bin/bmccert $$flow $(KILLS) || exit 1; \
	done

# Every fuzz target for FUZZ_SECONDS (default 60) each; fails on a crash,
# leak or timeout.
fuzz: deps
	bash scripts/fuzz.sh

# What CI runs after the tests: sanitizer builds, valgrind, fuzz smoke run.
hardening: build
	bash scripts/hardening.sh

# The sandbox runs on this machine whatever the target: taken from the host build.
host-tools: deps
	test -f $(BUILD_DIR)/CMakeCache.txt || cmake -S . -B $(BUILD_DIR) -DCMAKE_BUILD_TYPE=RelWithDebInfo
	cmake --build $(BUILD_DIR) -j $(JOBS) --target bmc-sandbox bmc-sim cert-login

test-armhf: host-tools
	bash scripts/install-deps.sh armhf
	bash scripts/armhf-sysroot.sh $(ARMHF_DIR)/sysroot
	cmake -S . -B $(ARMHF_DIR) $(LEAN) -DCMAKE_TOOLCHAIN_FILE=$(CURDIR)/cmake/toolchain-armhf.cmake \
	  -DBMCCERT_SYSROOT=$(CURDIR)/$(ARMHF_DIR)/sysroot -DBMCCERT_HOST_TOOLS_DIR=$(CURDIR)/$(BUILD_DIR)/bin
	cmake --build $(ARMHF_DIR) -j $(JOBS)
	cd $(ARMHF_DIR) && ctest --output-on-failure -j 2

test-openssl11: host-tools
	bash scripts/openssl11-prefix.sh $(OPENSSL11_DIR)/openssl11
	cmake -S . -B $(OPENSSL11_DIR) $(LEAN) -DBMCCERT_HOST_TOOLS_DIR=$(CURDIR)/$(BUILD_DIR)/bin \
	  -C $(OPENSSL11_DIR)/openssl11/cache.cmake
	cmake --build $(OPENSSL11_DIR) -j $(JOBS)
	bash scripts/check-openssl11.sh $(OPENSSL11_DIR)
	cd $(OPENSSL11_DIR) && PATH=$(CURDIR)/$(OPENSSL11_DIR)/openssl11/bin:$$PATH \
	  ctest --output-on-failure -j 2

clean:
	rm -rf $(BUILD_DIR) $(ARMHF_DIR) $(OPENSSL11_DIR) $(DEMO_ROOT) build-fuzz build-asan build-tsan
