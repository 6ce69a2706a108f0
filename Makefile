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

# The main job: the hello sample, run headless for ten frames.
run: build
	@$(BUILD)/bin/velmora-run --frames 10 --start $(BUILD)/bin/workspace samples/hello.3Dm

test: build
	@cd $(BUILD) && ctest --output-on-failure -j $(JOBS) --timeout 600

bench: build
	@$(BUILD)/bin/file_bench
	@$(BUILD)/bin/lua_bench
	@$(BUILD)/bin/engine_bench
	@$(BUILD)/bin/cl_bench
	@$(BUILD)/bin/mem_bench
	@$(BUILD)/bin/frame_bench
	@$(BUILD)/bin/load_bench

clean:
	@rm -rf $(BUILD)
