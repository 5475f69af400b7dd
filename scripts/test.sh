#!/usr/bin/env bash
# Builds and runs every test: style, then a g++ build (with valgrind and the benchmarks), a clang
# build with AddressSanitizer and UndefinedBehaviorSanitizer, the concurrency tests under
# ThreadSanitizer, and the parts without net-snmp in 32 bits. Fails when anything fails.
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
(cd build/ci-gcc && ctest -j "$jobs" --output-on-failure --timeout 600)

echo "== crash test (a profile and log writer killed with SIGKILL at 200 random moments)"
build/ci-gcc/tests/stress/snmplumi_stress_tests --gtest_filter='CrashTest.*' --gtest_brief=1

echo "== Debian package (cpack in the g++ build)"
rm -f build/ci-gcc/snmplumi_*.deb
(cd build/ci-gcc && cpack -G DEB > cpack.log) || { cat build/ci-gcc/cpack.log; exit 1; }
deb=$(echo build/ci-gcc/snmplumi_*.deb)
info=$(dpkg -I "$deb")
echo "$info"
grep -q '^ Depends:.*libsnmp40' <<<"$info" || { echo "$deb does not depend on libsnmp40" >&2; exit 1; }

echo "== benchmarks (ratios against a floor measured in the same run; informative)"
build/ci-gcc/bench/snmplumi_bench_get --benchmark_min_time=0.2
build/ci-gcc/bench/snmplumi_bench_upssim_start
build/ci-gcc/bench/snmplumi_bench_watch --benchmark_min_time=0.5
build/ci-gcc/bench/snmplumi_bench_frame --benchmark_min_time=0.2
build/ci-gcc/bench/snmplumi_bench_runtime --benchmark_min_time=0.2

echo "== clang build with AddressSanitizer + UndefinedBehaviorSanitizer, all tests"
cmake -S . -B build/ci-asan -G Ninja -DCMAKE_BUILD_TYPE=Debug \
  -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ -DSNMPLUMI_WERROR=ON \
  -DSNMPLUMI_SANITIZE=ON -DSNMPLUMI_FUZZ=ON
cmake --build build/ci-asan -j "$jobs"
(cd build/ci-asan &&
  ASAN_OPTIONS=detect_leaks=1:abort_on_error=1:detect_stack_use_after_return=1 UBSAN_OPTIONS=print_stacktrace=1 \
    ctest -j "$jobs" --output-on-failure --timeout 600)

echo "== fuzzers (AddressSanitizer + UndefinedBehaviorSanitizer), from the seed corpora"
# A million runs each; fewer where every input rewrites a file or makes SNMP exchanges.
declare -A fuzz_runs=([profile]=200000 [answers]=30000)
for fuzzer in build/ci-asan/tests/fuzz/snmplumi_fuzz_*; do
  name=${fuzzer##*/snmplumi_fuzz_}
  corpus=$(mktemp -d)
  cp tests/fuzz/corpus/"$name"/* "$corpus"/
  if ! ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 \
    UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
    "$fuzzer" -runs="${fuzz_runs[$name]:-1000000}" "$corpus" >"$corpus.log" 2>&1; then
    tail -n 60 "$corpus.log"
    echo "fuzzer $name found a fault" >&2
    exit 1
  fi
  echo "$name: $(grep -E '^Done' "$corpus.log")"
  rm -rf "$corpus" "$corpus.log"
done

echo "== clang build with ThreadSanitizer, the concurrency tests"
cmake -S . -B build/ci-tsan -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ -DSNMPLUMI_WERROR=ON -DSNMPLUMI_TSAN=ON
cmake --build build/ci-tsan -j "$jobs"
(cd build/ci-tsan &&
  TSAN_OPTIONS=halt_on_error=1:second_deadlock_stack=1 \
    ctest -j "$jobs" --output-on-failure --timeout 600 -R Concurrent)

bash scripts/test-m32.sh

echo "== all tests passed"
