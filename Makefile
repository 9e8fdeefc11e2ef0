# What there is to do here. The work itself is CMake's (presets in CMakePresets.json) and that of scripts/.
SHELL := /bin/bash
.DEFAULT_GOAL := help
JOBS ?= $(shell nproc)
WERROR := $(if $(filter true 1,$(CI)),ON,OFF)
MUTANTS ?= 300
MINUTES ?= 60
export JOBS WERROR

.PHONY: help deps build run test test-aarch64 soak lint format bench fuzz fuzz-coverage deb coverage mutation live bench-live clean

help: ## list these targets
	@grep -hE '^[a-z0-9-]+:.*## ' $(MAKEFILE_LIST) | awk -F ':.*## ' '{printf "  make %-14s %s\n", $$1, $$2}'

deps: ## install the Debian packages that are missing
	@scripts/deps

build: deps ## configure and build the release preset into build/release
	@scripts/build release

run: deps ## build, then replay captures/ under examples/access-switch.toml and print the report
	@scripts/build release vexhost vex_dhcp
	build/release/bin/vexhost replay --config examples/access-switch.toml captures/*.pcapng

test: deps ## every test in the release and asan presets, those labelled concurrency in tsan
	@scripts/test release asan tsan

test-aarch64: ## cross-build for the target and run the tests under qemu
	@scripts/deps aarch64
	@scripts/test aarch64

soak: deps ## hooks, drain, timers and configuration at once under the thread sanitizer for SECONDS=60
	@scripts/build tsan concurrency_tests
	@VEX_SOAK_SECONDS=$(or $(SECONDS),60) build/tsan/bin/concurrency_tests --gtest_brief=1 --gtest_filter='Soak.*'

lint: deps ## clang-format, clang-tidy and shell syntax over all tracked sources
	@scripts/lint

format: ## let clang-format rewrite all tracked sources
	@git ls-files '*.cpp' '*.h' | xargs clang-format -i

bench: deps ## benchmarks: the hook next to its floor, and replay on a million frames
	@scripts/build release
	@scripts/bench

fuzz: ## every fuzz target for SECONDS=20 each
	@scripts/deps evidence
	@scripts/fuzz $(or $(SECONDS),20)

fuzz-coverage: ## lines and branches that the inputs gathered by `make fuzz` reach
	@scripts/deps evidence
	@scripts/fuzz-coverage

deb: ## Debian packages of module, headers (amd64, arm64) and vexhost (amd64) into build/packages
	@scripts/deps aarch64
	@scripts/build release vexhost vex_dhcp
	@scripts/build aarch64 vex_dhcp
	@for preset in release aarch64; do (cd build/$$preset && cpack -G DEB -B ../packages >cpack.log || { cat cpack.log; exit 1; }); done
	@rm -rf build/packages/_CPack_Packages
	@ls -l build/packages/*.deb

coverage: ## line and branch coverage of the module, at least 95 % and 85 %
	@scripts/deps evidence
	@scripts/coverage

mutation: deps ## try MUTANTS=300 changed conditions and constants of the module on its tests, for MINUTES=60 at most
	@scripts/mutate.py --count $(MUTANTS) --minutes $(MINUTES)

clean: ## remove build/
	rm -rf build

live: ## a DHCP-snooping switch between real clients, servers and a rogue one, in network namespaces
	@scripts/deps live
	@scripts/build release vexhost vex_dhcp
	@scripts/live/demo.py build/release/bin/vexhost

bench-live: ## exchanges per second and CPU time per exchange next to relays and a plain bridge
	@scripts/deps live
	@scripts/build release vexhost vex_dhcp live_load
	@scripts/live/bench.py build/release/bin
