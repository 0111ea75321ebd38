#!/bin/sh
# Rebuilds the sample files of this directory from make_samples.cpp.
# Usage: samples/regenerate.sh [BUILD_DIRECTORY]   (default: build)
set -eu
here=$(cd "$(dirname "$0")" && pwd)
root=$(dirname "$here")
build=${1:-"$root/build"}
cmake -S "$root" -B "$build" >/dev/null
cmake --build "$build" -j2 --target make_samples
"$build/bin/make_samples" "$here"
ls -l "$here"/*.mp3
