# Thin front end over CMake. Every target first installs what is missing.
BUILD ?= build/host
PHONE ?= build/phone

.PHONY: all deps build run test bench clean

all: build

deps:
	@tools/install-deps

build: deps
	@cmake -S . -B $(BUILD) -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
	@cmake --build $(BUILD) -j$$(nproc)

run: build
	@./ftsim new $(PHONE) --force
	@./ftsim run $(PHONE)

test: build
	@cd $(BUILD) && ctest --output-on-failure

# Speed goals are measured here, never asserted in tests.
bench: build
	@for b in bench/*.sh; do sh "$$b" $(BUILD) || exit 1; done

clean:
	rm -rf build
