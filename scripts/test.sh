#!/usr/bin/env bash
# Installs what is missing, builds and runs all tests: the whole suite as it is installed, then the parsers
# and kernels under the address and undefined-behaviour sanitizers and what threads share under the thread
# sanitizer. Ends with one line of counts.
#
#   scripts/test.sh [--quick]     --quick leaves the sanitizer builds out
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

quick=0
case "${1:-}" in
  '') ;;
  --quick) quick=1 ;;
  *) sed -n '2,6s/^# \{0,1\}//p' "$0"; exit 2 ;;
esac

scripts/install-deps.sh
jobs=$(nproc)
passed=0
failed=0

# run PRESET BUILD-TARGETS... -- CTEST-ARGUMENTS...
run() {
  local preset=$1 targets=() log status=0
  shift
  while [ "$1" != -- ]; do targets+=("$1"); shift; done
  shift
  echo "== $preset: build"
  cmake --preset "$preset" >"build/$preset.log" 2>&1 || { cat "build/$preset.log"; exit 1; }
  cmake --build --preset "$preset" -j "$jobs" ${targets[@]+--target "${targets[@]}"} >"build/$preset.log" 2>&1 ||
    { tail -n 60 "build/$preset.log"; exit 1; }
  echo "== $preset: tests"
  log=build/$preset-tests.log
  ctest --preset "$preset" -j "$jobs" "$@" >"$log" 2>&1 || status=$?
  local total bad
  total=$(sed -n 's/^.* tests failed out of \([0-9]*\)$/\1/p' "$log" | tail -n 1)
  bad=$(sed -n 's/^.*%  *tests passed, \([0-9]*\) tests failed.*$/\1/p; s/^.*% tests passed, \([0-9]*\) tests failed.*$/\1/p' "$log" | tail -n 1)
  if [ -z "$total" ] || [ "$total" = 0 ]; then cat "$log"; echo "$preset: no test ran"; exit 1; fi
  [ "$status" = 0 ] || grep -vE '^ *[0-9]+/[0-9]+ Test .* Passed|^ *Start ' "$log"
  sed -n '/tests passed/p; /Total Test time/p' "$log"
  passed=$((passed + total - bad))
  failed=$((failed + bad))
}

mkdir -p build
run release -- --output-on-failure
if [ $quick = 0 ]; then
  export ASAN_OPTIONS=detect_leaks=1:allocator_may_return_null=1 UBSAN_OPTIONS=print_stacktrace=1
  run asan -- --output-on-failure
  run tsan test_platform test_kernel test_settings test_text test_media test_image_threads -- --output-on-failure \
    -R '^((platform|kernel|settings|text|image_threads)\.|media\.PeakThreads)'
fi
echo "$passed passed, $failed failed"
[ $failed = 0 ]
