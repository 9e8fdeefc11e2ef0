# What there is to do here. The work itself is CMake's (presets in CMakePresets.json) and that of scripts/.
SHELL := /bin/bash
.DEFAULT_GOAL := help
JOBS ?= $(shell nproc)
WERROR := $(if $(filter true 1,$(CI)),ON,OFF)
CONFIGURE := cmake -DVEX_WERROR=$(WERROR)
export JOBS WERROR

.PHONY: help deps build run test lint format bench clean

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

lint: deps ## clang-format, clang-tidy and shell syntax over all tracked sources
	@scripts/lint

format: ## let clang-format rewrite all tracked sources
	@git ls-files '*.cpp' '*.h' | xargs clang-format -i

bench: deps ## benchmarks: the hook next to its floor, and replay on a million frames
	@scripts/build release
	@scripts/bench

clean: ## remove build/
	rm -rf build
