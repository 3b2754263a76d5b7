#!/usr/bin/env bash
# Installs what is missing, builds the Release tree and runs the demo: thumbnails,
# a freeze frame and the audio waveform of a generated sample, written as PNG files,
# with a summary. Arguments are passed on to the demo program
# (build/release/examples/vrfetcher-demo [media file] [--out DIR]).
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/install-deps.sh

build=build/release
cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DVR_BUILD_TESTS=OFF >/dev/null
cmake --build "$build" -j "$(nproc)" --target vrfetcher-demo
exec "$build/examples/vrfetcher-demo" "$@"
