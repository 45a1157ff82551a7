#!/usr/bin/env bash
# Installs what is missing, builds the release preset and runs the main job on
# the built-in sample assembly.
set -euo pipefail
cd "$(dirname "$0")/.."
./scripts/install-deps.sh
cmake --preset release >/dev/null
cmake --build --preset release -j "$(nproc 2>/dev/null || echo 2)" --target sample_assembly
./build/release/examples/sample_assembly "$@"
