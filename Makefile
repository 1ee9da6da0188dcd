# Thin front end over CMake. Every target first installs what is missing.
#   host: the native build    asan: AddressSanitizer + UBSan    arm: the phone's armhf build
PHONE ?= build/phone
JOBS := $(shell nproc)
MAKEFLAGS += --no-print-directory

FUZZ_SECONDS ?= 300

.PHONY: all deps host asan arm fuzz-build fuzz coverage run station test test-host test-asan test-arm bench clean

all: host asan arm fuzz-build

deps:
	@tools/install-deps

host: deps
	@cmake -S . -B build/host -DCMAKE_BUILD_TYPE=RelWithDebInfo -DFT_BUILD_NAME=host >/dev/null
	@cmake --build build/host -j$(JOBS)

asan: deps
	@cmake -S . -B build/asan -DCMAKE_BUILD_TYPE=Debug -DFT_BUILD_NAME=asan -DFT_SANITIZE=ON >/dev/null
	@cmake --build build/asan -j$(JOBS)

# Build-time generators (the digit images) run on this machine: the host build's.
arm: host
	@tools/arm-sysroot build/arm/sysroot
	@cmake -S . -B build/arm -DCMAKE_BUILD_TYPE=RelWithDebInfo -DFT_BUILD_NAME=arm \
		-DCMAKE_TOOLCHAIN_FILE=$(CURDIR)/cmake/armhf.cmake \
		-DDIGIT_GENERATOR=$(CURDIR)/build/host/display/make_digit_images >/dev/null
	@cmake --build build/arm -j$(JOBS)

# libFuzzer needs clang: the console's fuzz target, with its own sanitizer build.
fuzz-build: deps
	@cmake -S . -B build/fuzz -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ \
		-DCMAKE_BUILD_TYPE=RelWithDebInfo -DFT_BUILD_NAME=fuzz -DFT_FUZZ=ON >/dev/null
	@cmake --build build/fuzz -j$(JOBS)

fuzz: fuzz-build
	@tools/fuzz build/fuzz $(FUZZ_SECONDS)

# gcc's coverage of the console's code by the end-to-end and unit suites (not part of make test).
coverage: deps
	@cmake -S . -B build/coverage-build -DCMAKE_BUILD_TYPE=Debug -DFT_BUILD_NAME=host -DFT_COVERAGE=ON >/dev/null
	@cmake --build build/coverage-build -j$(JOBS)
	@tools/coverage build/coverage-build

run: host
	@./ftsim new $(PHONE) --force
	@./ftsim run $(PHONE)

# The reference production flow on a fresh simulated phone.
STATION_PHONE ?= build/station/phone
UNIT ?= SN0000001
station: host
	@./ftsim new $(STATION_PHONE) --force
	@./ftstation run station/plans/production.toml --phone $(STATION_PHONE) \
		--unit $(UNIT) --records build/station/records

# Every suite runs against every build; the run fails if any of them fails.
test: all
	@status=0; \
	for b in host asan arm fuzz; do \
	  echo "=== tests: $$b build"; \
	  (cd build/$$b && ctest --output-on-failure) || status=1; \
	done; exit $$status

test-host: host
	@cd build/host && ctest --output-on-failure

test-asan: asan
	@cd build/asan && ctest --output-on-failure

test-arm: arm
	@cd build/arm && ctest --output-on-failure

# Every benchmark under bench/, each printed against a baseline of the same run.
bench: host arm
	@for b in bench/*; do [ -x "$$b" ] && { echo "=== $$b"; "$$b" || exit 1; }; done; true

clean:
	rm -rf build
