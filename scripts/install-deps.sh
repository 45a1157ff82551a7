#!/usr/bin/env bash
# Installs the Debian packages Velmora builds and tests with, skipping those
# already present. Runs apt-get through sudo when not root.
set -euo pipefail

packages=(
  build-essential cmake pkg-config
  libgtest-dev libgmock-dev libbenchmark-dev
  libembree-dev libassimp-dev libcli11-dev nlohmann-json3-dev zlib1g-dev
  python3-dev pybind11-dev python3-pybind11 python3-numpy python3-pytest python3-distributed
  python3-skbuild python3-venv python3-pip
  libmeshoptimizer-dev
  libocct-data-exchange-dev libocct-ocaf-dev libocct-modeling-algorithms-dev
  chromium
  clang libclang-rt-14-dev
)
# The HTML viewer is bundled with node and npm. Debian's npm conflicts with
# the nodejs of other sources (which bring their own npm), so both come from
# Debian only when neither command is present.
command -v node >/dev/null && command -v npm >/dev/null || packages+=(nodejs npm)

missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
[ ${#missing[@]} -eq 0 ] && exit 0

sudo=""
[ "$(id -u)" -eq 0 ] || sudo="sudo"
echo "installing: ${missing[*]}"
$sudo apt-get update -qq
DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq --no-install-recommends "${missing[@]}"
