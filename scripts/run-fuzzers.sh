#!/usr/bin/env bash
# Builds the libFuzzer targets (clang, ASan + UBSan) and runs each for a
# bounded time over its committed seed corpus. A crash fails the run.
#
#   scripts/run-fuzzers.sh [seconds-per-target]
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=${1:-60}

cmake --preset fuzz >/dev/null
cmake --build --preset fuzz -j "$(nproc)"

# The fake stack that finds uses after return makes every thrown exception
# slow; the decoders throw on most inputs.
export ASAN_OPTIONS=${ASAN_OPTIONS:-detect_stack_use_after_return=0}

status=0
for corpus in tests/fuzz/corpus/*/; do
  name=$(basename "${corpus}")
  binary=build/fuzz/tests/fuzz/${name}
  [[ -x ${binary} ]] || { echo "missing fuzz target ${name}"; status=1; continue; }
  work=$(mktemp -d)
  cp -r "${corpus}." "${work}/"
  echo "-- ${name}: ${seconds} s"
  if ! "${binary}" -max_total_time="${seconds}" -timeout=10 -rss_limit_mb=2048 \
      -print_final_stats=1 "${work}" 2>"${work}.log"; then
    tail -n 40 "${work}.log"
    status=1
  else
    grep -E 'stat::number_of_executed_units|stat::peak_rss_mb' "${work}.log" || true
  fi
  rm -rf "${work}" "${work}.log"
done
exit "${status}"
