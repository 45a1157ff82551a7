#!/usr/bin/env bash
# Installs what is missing, builds the release preset and runs the main job
# on a built-in sample assembly (default: the housing stack). Arguments go to
# `velmora demo`, e.g. `./scripts/demo.sh peg-in-hole -o report.json`.
set -euo pipefail
cd "$(dirname "$0")/.."
./scripts/install-deps.sh
cmake --preset release >/dev/null
cmake --build --preset release -j "$(nproc 2>/dev/null || echo 2)" --target velmora_cli
./build/release/tools/velmora/velmora demo "$@"
