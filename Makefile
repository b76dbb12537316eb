# The two everyday commands:
#   make demo  - install what is missing, build, run the main job in a sandboxed
#                controller with its real TLS tunnel and web server
#   make test  - install what is missing, build, run the whole test suite
# For the controller's targets (see README, "Firmware integration"):
#   make test-armhf      - cross build for 32-bit ARM, the whole suite under qemu-arm
#   make test-openssl11  - the whole suite against OpenSSL 1.1.1 and its openssl tool
BUILD_DIR ?= build
ARMHF_DIR ?= build-armhf
OPENSSL11_DIR ?= build-openssl11
DEMO_ROOT ?= $(CURDIR)/demo-root
JOBS ?= $(shell nproc)
# Release builds without the benchmarks: only what the suite needs.
LEAN = -DCMAKE_BUILD_TYPE=Release -DBMCCERT_BENCH=OFF -DBMCCERT_SYSTEM_LINK_TEST=OFF

.PHONY: all deps build test demo bench fuzz hardening clean host-tools test-armhf test-openssl11

all: build

deps:
	bash scripts/install-deps.sh

build: deps
	cmake -S . -B $(BUILD_DIR) -DCMAKE_BUILD_TYPE=RelWithDebInfo
	cmake --build $(BUILD_DIR) -j $(JOBS)

test: build
	cd $(BUILD_DIR) && ctest --output-on-failure -j 2

demo: build
	$(BUILD_DIR)/bin/bmc-sandbox --fresh --services $(DEMO_ROOT) -- bash scripts/demo.sh $(CURDIR)/$(BUILD_DIR)/bin/bmccert

bench: build
	cmake --build $(BUILD_DIR) --target bench

.PHONY: all deps build test demo bench fuzz hardening clean host-tools test-armhf test-openssl11
