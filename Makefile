# The two commands: `make run` and `make test`. Both install what is missing,
# configure and build first. `make test-luajit` (and `make bench-luajit`) do the
# same on a second build folder against LuaJIT instead of Lua 5.1.
BUILD ?= build
LUAJIT_BUILD ?= build-luajit
JOBS ?= $(shell nproc)
FUZZ_SECONDS ?= 60

.PHONY: all deps configure build run screenshot test bench fuzz fuzz-ply clean configure-luajit build-luajit test-luajit bench-luajit

all: build

deps:
	@bash scripts/install-deps.sh

configure: deps
	@cmake -S . -B $(BUILD) -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null

build: configure
	@cmake --build $(BUILD) -j $(JOBS)

# The main job: the editor on the hello sample. Without a display the hello
# sample runs headless for ten frames instead.
run: build
	@if [ -n "$$DISPLAY" ]; then \
	  $(BUILD)/bin/velmora samples/hello.3Dm; \
	else \
	  echo "make run: no display (DISPLAY is not set), running the headless runner instead"; \
	  $(BUILD)/bin/velmora-run --frames 10 --start $(BUILD)/bin/workspace samples/hello.3Dm; \
	fi

# The editor's picture in the README: the hello sample running for a second,
# on a virtual display.
screenshot: build
	@xvfb-run -a -s "-screen 0 1600x1200x24" env QT_QPA_PLATFORM=xcb \
	  $(BUILD)/bin/velmora --screenshot $(CURDIR)/docs/editor.png samples/hello.3Dm
	@echo "make screenshot: docs/editor.png"

test: build
	@cd $(BUILD) && ctest --output-on-failure -j $(JOBS) --timeout 600

BENCHES = file_bench lua_bench engine_bench cl_bench mem_bench frame_bench load_bench share_bench road_bench

bench: build
	@set -e; for b in $(BENCHES); do $(BUILD)/bin/$$b; done

configure-luajit: deps
	@cmake -S . -B $(LUAJIT_BUILD) -DCMAKE_BUILD_TYPE=RelWithDebInfo -DVELMORA_LUA=luajit >/dev/null

build-luajit: configure-luajit
	@cmake --build $(LUAJIT_BUILD) -j $(JOBS)

test-luajit: build-luajit
	@cd $(LUAJIT_BUILD) && ctest --output-on-failure -j $(JOBS) --timeout 600

bench-luajit: build-luajit
	@set -e; for b in $(BENCHES); do $(LUAJIT_BUILD)/bin/$$b; done

# Fuzzes the file reader for FUZZ_SECONDS seconds from the seed corpus; what
# it learns stays in $(BUILD)/fuzz/corpus for the next run, and a crashing
# input is written to $(BUILD)/fuzz/ as crash-<hash>.
fuzz: build
	@if [ ! -x $(BUILD)/bin/reader_fuzz ]; then \
	  echo "make fuzz: skipped, the reader fuzzer needs clang with libFuzzer (see scripts/install-deps.sh)"; \
	else \
	  mkdir -p $(BUILD)/fuzz/corpus && cd $(BUILD)/fuzz && \
	  LSAN_OPTIONS=suppressions=$(CURDIR)/tests/support/lsan.supp:print_suppressions=0 \
	  ../bin/reader_fuzz -max_total_time=$(FUZZ_SECONDS) -max_len=8192 corpus seeds; \
	fi

# The same for the PLY reader of the `ply` plug-in, from the seed models in
# $(BUILD)/fuzz/ply-seeds; its corpus stays in $(BUILD)/fuzz/ply-corpus.
fuzz-ply: build
	@if [ ! -x $(BUILD)/bin/ply_fuzz ]; then \
	  echo "make fuzz-ply: skipped, the fuzzer needs clang with libFuzzer (see scripts/install-deps.sh)"; \
	else \
	  mkdir -p $(BUILD)/fuzz/ply-corpus && cd $(BUILD)/fuzz && \
	  ../bin/ply_fuzz -max_total_time=$(FUZZ_SECONDS) -max_len=4096 ply-corpus ply-seeds; \
	fi

clean:
	@rm -rf $(BUILD) $(LUAJIT_BUILD)
