# The two everyday commands:
#   make demo  - install what is missing, build, run the main job in a sandboxed
#                controller with its real TLS tunnel and web server
#   make test  - install what is missing, build, run the whole test suite
BUILD_DIR ?= build
DEMO_ROOT ?= $(CURDIR)/demo-root
JOBS ?= $(shell nproc)

.PHONY: all deps build test demo bench clean

all: build

deps:
	bash scripts/install-deps.sh

build: deps
	cmake -S . -B $(BUILD_DIR) -DCMAKE_BUILD_TYPE=RelWithDebInfo
	cmake --build $(BUILD_DIR) -j $(JOBS)

test: build
	cd $(BUILD_DIR) && ctest --output-on-failure -j 2

demo: build
	$(BUILD_DIR)/bin/bmc-sandbox --fresh --services --private-network $(DEMO_ROOT) -- bash scripts/demo.sh $(CURDIR)/$(BUILD_DIR)/bin/bmccert

bench: build
	cmake --build $(BUILD_DIR) --target bench

clean:
	rm -rf $(BUILD_DIR) $(DEMO_ROOT)
