#!/usr/bin/env bash
# Builds and runs every test: style, then a g++ build, then a clang build with AddressSanitizer
# and UndefinedBehaviorSanitizer. Fails when anything fails.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh
jobs=$(nproc)

echo "== style (clang-format)"
bash scripts/check-format.sh

echo "== g++ build, all tests"
cmake -S . -B build/ci-gcc -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DCMAKE_C_COMPILER=gcc -DCMAKE_CXX_COMPILER=g++ -DSNMPLUMI_WERROR=ON
cmake --build build/ci-gcc -j "$jobs"
(cd build/ci-gcc && ctest -j "$jobs" --output-on-failure --timeout 300)

echo "== clang build with AddressSanitizer + UndefinedBehaviorSanitizer, all tests"
cmake -S . -B build/ci-asan -G Ninja -DCMAKE_BUILD_TYPE=Debug \
  -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ -DSNMPLUMI_WERROR=ON \
  -DSNMPLUMI_SANITIZE=ON
cmake --build build/ci-asan -j "$jobs"
(cd build/ci-asan &&
  ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1 \
    ctest -j "$jobs" --output-on-failure --timeout 300)

echo "== all tests passed"
