#!/usr/bin/env bash
# Installs everything, then builds and runs every test: the release build
# and its Debian package, the AddressSanitizer + UndefinedBehaviorSanitizer
# build (which also counts coverage: the product code's line coverage must
# stay at the minimum in scripts/coverage-minimum), end-to-end runs under
# Valgrind, a bounded run of each fuzz target over its seed corpus, the
# reproducibility of the Debian package and the Windows program (each built
# twice from the last commit), and the Windows build and its installer under
# Wine.
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
# Counters of an earlier run would add to this one's, or no longer match
# objects built again.
if [[ -d build/asan ]]; then
  find build/asan -name '*.gcda' -delete
fi
run_preset asan
echo "== coverage of the asan tests"
bash scripts/coverage-report.sh build/asan || status=1

# Each stage runs whatever the state of its script's execute bit; a stage
# whose script is missing fails the run instead of vanishing from it.
run_stage() {
  local label=$1 script=$2
  shift 2
  echo "== ${label}"
  if [[ ! -f "${script}" ]]; then
    echo "test.sh: ${script} is missing" >&2
    status=1
    return
  fi
  bash "${script}" "$@" || status=1
}

run_stage "end-to-end runs under Valgrind" scripts/run-valgrind.sh
run_stage "fuzz targets" scripts/run-fuzzers.sh "${KORVANE_FUZZ_SECONDS:-60}"
run_stage "reproducible builds" scripts/check-reproducible.sh
run_stage "Windows build under Wine" scripts/test-windows.sh

exit "${status}"
