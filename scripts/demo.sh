#!/usr/bin/env bash
# Builds the library and runs the demo: a host program that loads it as a host service does.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh
cmake -S . -B build/demo -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DSNMPLUMI_BUILD_TESTS=OFF
cmake --build build/demo --target snmplumi snmplumi-host
home=$(mktemp -d)
trap 'rm -rf "$home"' EXIT
SNMPLUMI_HOME=$home build/demo/tools/host/snmplumi-host "$@"
