# The two commands: `make run` and `make test`. Both install what is missing,
# configure and build first.
BUILD ?= build
JOBS ?= $(shell nproc)

.PHONY: all deps configure build run test bench clean

all: build

deps:
	@bash scripts/install-deps.sh

configure: deps
	@cmake -S . -B $(BUILD) -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null

build: configure
	@cmake --build $(BUILD) -j $(JOBS)

# For now the main job writes a new application and dumps it.
run: build
	@mkdir -p $(BUILD)/run
	@$(BUILD)/bin/velmora-file new $(BUILD)/run/new.3Dm
	@$(BUILD)/bin/velmora-file dump $(BUILD)/run/new.3Dm

test: build
	@cd $(BUILD) && ctest --output-on-failure -j $(JOBS) --timeout 600

bench: build
	@$(BUILD)/bin/file_bench

clean:
	@rm -rf $(BUILD)
