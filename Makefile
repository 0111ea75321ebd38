# Entry points for people: the build itself is CMake's.
#   make run        build the module, libkz_sys and kzdump, then show what the
#                   module delivers for samples/*.mp3
#   make test       build everything, then run every test (ctest)
#   make            build everything into build/
#   make asan-test  the tests in build-asan/, with AddressSanitizer and UBSan
# Each first installs the Debian packages it needs that are missing (as
# root), or names them in one line.  Warnings are errors in these builds.
BUILD_DIR ?= build
ASAN_BUILD_DIR ?= build-asan
JOBS ?= 2
CMAKE_FLAGS := -DKZ_ID3_WERROR=ON

# Debian package:file that shows it is installed.
RUN_NEEDS := cmake:/usr/bin/cmake g++:/usr/bin/g++
TEST_NEEDS := $(RUN_NEEDS) libgtest-dev:/usr/include/gtest/gtest.h python3:/usr/bin/python3 \
  python3-pytest:/usr/lib/python3/dist-packages/pytest \
  python3-dask:/usr/lib/python3/dist-packages/dask \
  python3-distributed:/usr/lib/python3/dist-packages/distributed \
  python3-pandas:/usr/lib/python3/dist-packages/pandas \
  python3-venv:/usr/share/doc/python3-venv \
  python3-pip:/usr/lib/python3/dist-packages/pip \
  python3-setuptools:/usr/lib/python3/dist-packages/setuptools \
  python3-wheel:/usr/lib/python3/dist-packages/wheel \
  man-db:/usr/bin/man git:/usr/bin/git pkg-config:/usr/bin/pkg-config

.PHONY: all build run test asan-test clean run-needs test-needs

all: build

run-needs:
	@$(call install_missing,$(RUN_NEEDS))
test-needs:
	@$(call install_missing,$(TEST_NEEDS))

# A fresh build tree made by `make run` leaves the tests out, so that it
# needs no test framework; `make test` turns them on.
run: run-needs
	@test -f $(BUILD_DIR)/CMakeCache.txt || \
	  cmake -S . -B $(BUILD_DIR) $(CMAKE_FLAGS) -DKZ_ID3_BUILD_TESTS=OFF
	cmake --build $(BUILD_DIR) -j$(JOBS) --target kz_id3 kz_sys kzdump
	$(BUILD_DIR)/bin/kzdump samples/*.mp3

build: test-needs
	cmake -S . -B $(BUILD_DIR) $(CMAKE_FLAGS) -DKZ_ID3_BUILD_TESTS=ON
	cmake --build $(BUILD_DIR) -j$(JOBS)

test: build
	ctest --test-dir $(BUILD_DIR) --output-on-failure -j$(JOBS)

asan-test: test-needs
	cmake -S . -B $(ASAN_BUILD_DIR) $(CMAKE_FLAGS) -DKZ_ID3_SANITIZE=ON -DKZ_ID3_BUILD_TESTS=ON
	cmake --build $(ASAN_BUILD_DIR) -j$(JOBS)
	ctest --test-dir $(ASAN_BUILD_DIR) --output-on-failure -j$(JOBS)

clean:
	rm -rf $(BUILD_DIR) $(ASAN_BUILD_DIR)

define install_missing
missing=""; \
for need in $(1); do [ -e "$${need#*:}" ] || missing="$$missing $${need%%:*}"; done; \
if [ -z "$$missing" ]; then exit 0; fi; \
if [ "$$(id -u)" -ne 0 ]; then \
  echo "make: missing Debian packages; install them first: sudo apt-get install$$missing" >&2; \
  exit 1; \
fi; \
echo "make: installing$$missing"; \
apt-get update -qq && DEBIAN_FRONTEND=noninteractive apt-get install -y -qq $$missing
endef
