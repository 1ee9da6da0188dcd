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

# Every executable under bench/ is one benchmark; each prints its figures.
bench: build
	@set -e; for b in bench/*; do \
	  if [ -f "$$b" ] && [ -x "$$b" ]; then FTSIM_BUILD_DIR=$(CURDIR)/$(BUILD) "$$b"; fi; \
	done

clean:
	rm -rf build
