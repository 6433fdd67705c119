#!/usr/bin/env bash
# Checks the naming rules of .clang-tidy over the product, test and
# benchmark sources with clang-tidy, one translation unit per process, as
# many at once as there are processors. Headers of the project are checked
# where they are included.
#
#   scripts/check-naming.sh <build folder with compile_commands.json>
# Prints every offending name and exits non-zero when there is one.
set -euo pipefail
build=${1:?usage: check-naming.sh <build folder>}
cd "$(dirname "$0")/.."
root=$(pwd)

# The build uses GCC's flags: clang-tidy 14 knows C++23 as c++2b and not
# GCC's own warning options.
files=$(python3 - "${build}/compile_commands.json" "${root}" <<'PY'
import json, os, sys
root = sys.argv[2]
seen = set()
for entry in json.load(open(sys.argv[1])):
    path = os.path.relpath(entry["file"], root)
    if path.startswith(("setUserPassword/", "security/", "lineEdit/", "utils/", "tests/", "bench/")):
        seen.add(path)
print("\n".join(sorted(seen)))
PY
)
output=$(printf '%s\n' ${files} | xargs -P "$(nproc)" -n 1 clang-tidy -p "${build}" --quiet \
  --header-filter="^${root}/(setUserPassword|security|lineEdit|utils|tests|bench)/" \
  --extra-arg=-std=c++2b --extra-arg=-Wno-unknown-warning-option 2>/dev/null || true)
findings=$(grep -E 'warning:|error:' <<<"${output}" | sort -u || true)
if [[ -n "${findings}" ]]; then
  echo "${findings}"
  exit 1
fi
echo "naming: $(wc -w <<<"${files}") translation units, no findings"
