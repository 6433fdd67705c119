#!/usr/bin/env bash
# Installs everything, then builds and runs every test: the release build
# and its Debian package, the AddressSanitizer + UndefinedBehaviorSanitizer
# build, end-to-end runs under Valgrind, a bounded run of each fuzz target
# over its seed corpus, and the Windows build under Wine.
#
#   scripts/test.sh                 # everything
#   KORVANE_FUZZ_SECONDS=10 scripts/test.sh
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/install-deps.sh --windows

jobs=$(nproc)
status=0

run_preset() {
  local preset=$1
  echo "== ${preset}: configure and build"
  cmake --preset "${preset}" >/dev/null
  cmake --build --preset "${preset}" -j "${jobs}"
  echo "== ${preset}: tests"
  ctest --preset "${preset}" -j "${jobs}" || status=1
}

run_preset release
echo "== Debian package"
bash scripts/package.sh || status=1
run_preset asan

if [[ -x scripts/run-valgrind.sh ]]; then
  echo "== end-to-end runs under Valgrind"
  bash scripts/run-valgrind.sh || status=1
fi

if [[ -x scripts/run-fuzzers.sh ]]; then
  echo "== fuzz targets"
  bash scripts/run-fuzzers.sh "${KORVANE_FUZZ_SECONDS:-60}" || status=1
fi

if [[ -x scripts/test-windows.sh ]]; then
  echo "== Windows build under Wine"
  bash scripts/test-windows.sh || status=1
fi

exit "${status}"
