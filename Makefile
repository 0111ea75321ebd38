# Entry points for people: the build itself is CMake's.
#   make          configure and build everything into build/
#   make run      build, then show what the module delivers for samples/*.mp3
#   make test     build, then run every test (ctest)
#   make asan-test  the same in build-asan/, with AddressSanitizer and UBSan
BUILD_DIR ?= build
ASAN_BUILD_DIR ?= build-asan
JOBS ?= 2

.PHONY: all build run test asan-test clean

all: build

build:
	cmake -S . -B $(BUILD_DIR)
	cmake --build $(BUILD_DIR) -j$(JOBS)

run: build
	$(BUILD_DIR)/bin/kzdump samples/*.mp3

test: build
	ctest --test-dir $(BUILD_DIR) --output-on-failure -j$(JOBS)

asan-test:
	cmake -S . -B $(ASAN_BUILD_DIR) -DKZ_SANITIZE=ON
	cmake --build $(ASAN_BUILD_DIR) -j$(JOBS)
	ctest --test-dir $(ASAN_BUILD_DIR) --output-on-failure -j$(JOBS)

clean:
	rm -rf $(BUILD_DIR) $(ASAN_BUILD_DIR)
