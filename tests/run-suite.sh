#!/usr/bin/env bash
# Builds and runs the whole test suite twice: an optimised build and a build with
# AddressSanitizer and UndefinedBehaviorSanitizer. Set ZNDVR_TSAN=1 to add a
# ThreadSanitizer build, and ZNDVR_PORTABLE_CHECK=1 to run the codec tests first in a
# build without SIMD intrinsics. Any failure ends the run with a non-zero exit code.
set -euo pipefail
cd "$(dirname "$0")/.."

jobs=$(nproc)
configs=(release asan)
if [ "${ZNDVR_TSAN:-0}" = 1 ]; then
  configs+=(tsan)
fi

if [ "${ZNDVR_PORTABLE_CHECK:-0}" = 1 ]; then
  echo "== portable codec build =="
  cmake -S . -B build/portable -DZNDVR_BUILD_TESTS=ON -DCMAKE_BUILD_TYPE=Release -DZNDVR_PORTABLE=ON >/dev/null
  cmake --build build/portable -j "$jobs" --target zndvr_tests_codec
  echo "== portable codec tests =="
  build/portable/tests/zndvr_tests_codec --gtest_brief=1
fi

for config in "${configs[@]}"; do
  case $config in
    release) options=(-DCMAKE_BUILD_TYPE=Release) ;;
    asan) options=(-DCMAKE_BUILD_TYPE=RelWithDebInfo -DZNDVR_SANITIZE=address) ;;
    tsan) options=(-DCMAKE_BUILD_TYPE=RelWithDebInfo -DZNDVR_SANITIZE=thread) ;;
  esac
  echo "== $config build =="
  cmake -S . -B "build/$config" -DZNDVR_BUILD_TESTS=ON "${options[@]}" >/dev/null
  cmake --build "build/$config" -j "$jobs"
  echo "== $config tests =="
  ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
    TSAN_OPTIONS=halt_on_error=1:second_deadlock_stack=1 \
    ctest --test-dir "build/$config" --output-on-failure -j "$jobs"
done
