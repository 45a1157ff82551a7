#!/usr/bin/env bash
# Installs what is missing, builds the release preset and runs the main job
# on a built-in sample assembly: the plan (contacts and disassembly hierarchy)
# goes to build/demo/NAME.json and the animated exploded view to
# build/demo/NAME.glb. With more than a name, the arguments go to
# `velmora demo` as they are, e.g. `./scripts/demo.sh peg-in-hole -o -`.
set -euo pipefail
cd "$(dirname "$0")/.."
./scripts/install-deps.sh
cmake --preset release >/dev/null
cmake --build --preset release -j "$(nproc 2>/dev/null || echo 2)" --target velmora_cli
velmora=./build/release/tools/velmora/velmora
if [ "$#" -le 1 ] && [ "${1:-}" != "--list" ] && [ "${1:-}" != "--help" ]; then
    name="${1:-stack}"
    mkdir -p build/demo
    "$velmora" demo "$name" -o "build/demo/$name.json"
    echo "demo: plan in build/demo/$name.json, exploded view in build/demo/$name.glb (and $name.html when built with the viewer)"
else
    "$velmora" demo "$@"
fi
