# One-command entry points over CMake.
#   make test              configure, build and run every test
#   make test SANITIZE=1   the same with AddressSanitizer and UBSan
#   make bench             build and run the benchmarks
#   make demo              build and run the example programs (pictures in out/)
#   make install PREFIX=…  install header, libraries, pkg-config and CMake files

SANITIZE ?= 0
JOBS     ?= $(shell nproc)
PREFIX   ?= /usr/local
ifeq ($(SANITIZE),1)
BUILD    ?= build-asan
CMFLAGS  += -DLUMR_SANITIZE=ON -DLUMR_BUILD_BENCH=OFF
else
BUILD    ?= build
endif

.PHONY: all deps configure build test bench install demo clean

all: build

deps:
	@tools/install-deps.sh

configure: deps
	@cmake -S . -B $(BUILD) -DCMAKE_BUILD_TYPE=Release $(CMFLAGS) >/dev/null

build: configure
	@cmake --build $(BUILD) -j $(JOBS)

test: build
	@cd $(BUILD) && ctest --output-on-failure -j $(JOBS)

bench:
	@tools/install-deps.sh bench
	@$(MAKE) --no-print-directory build
	@tools/run-bench.sh $(BUILD)

install: build
	@cmake --install $(BUILD) --prefix $(PREFIX)

# Builds the example programs (their packages come with `deps`) and runs both on their
# built-in defaults; the pictures land in out/.
demo: deps
	@cmake -S . -B $(BUILD) -DCMAKE_BUILD_TYPE=Release $(CMFLAGS) >/dev/null
	@cmake --build $(BUILD) -j $(JOBS) --target lumr-render lumr-volume
	@examples/demo.sh $(BUILD) out

clean:
	rm -rf build build-asan
