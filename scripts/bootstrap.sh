#!/usr/bin/env bash
# Installs what MeldSolids needs (Debian 12), builds it into build/, and runs the
# demo job on the sample shipped in samples/.
#
#   bash scripts/bootstrap.sh            install, build, demo
#   SKIP_INSTALL=1 bash scripts/bootstrap.sh   build and demo only
set -euo pipefail
cd "$(dirname "$0")/.."

PACKAGES=(
  build-essential cmake pkg-config python3
  libgtest-dev libgmock-dev libbenchmark-dev
  libocct-foundation-dev libocct-modeling-data-dev libocct-modeling-algorithms-dev
  libocct-data-exchange-dev libtbb-dev
  clang libclang-rt-14-dev libomp-dev
)

if [[ "${SKIP_INSTALL:-0}" != 1 ]]; then
  SUDO=""
  if [[ $(id -u) -ne 0 ]]; then SUDO="sudo"; fi
  export DEBIAN_FRONTEND=noninteractive
  $SUDO apt-get update -qq
  $SUDO apt-get install -y -qq --no-install-recommends "${PACKAGES[@]}"
fi

BUILD_DIR="${BUILD_DIR:-build}"
cmake -S . -B "$BUILD_DIR" -DCMAKE_BUILD_TYPE=RelWithDebInfo
cmake --build "$BUILD_DIR" -j "$(nproc)"

if [[ -x scripts/demo.sh ]]; then
  BUILD_DIR="$BUILD_DIR" scripts/demo.sh
fi
