#!/usr/bin/env bash
# Installs what is missing, builds the given CMake preset (default: release)
# and runs every test of it.
set -euo pipefail
cd "$(dirname "$0")/.."
preset="${1:-release}"
./scripts/install-deps.sh
jobs="$(nproc 2>/dev/null || echo 2)"
cmake --preset "$preset"
cmake --build --preset "$preset" -j "$jobs"
ctest --preset "$preset" -j "$jobs"
