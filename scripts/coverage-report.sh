#!/usr/bin/env bash
# Line and branch coverage of the product code, by folder, from the counters
# that a build with --coverage (the asan preset) leaves after its tests ran.
# Fails when the total line coverage of the product code is below the figure
# in scripts/coverage-minimum.
#
#   scripts/coverage-report.sh [build folder]   # default: build/asan
#
# Product code is setUserPassword/, security/, lineEdit/ and utils/; tests/,
# bench/ and generated files under build/ are not counted. Only what this
# platform builds is measured: the *_windows.cpp files are not.
#
# Branches are gcov's, less those a line can only take by throwing an
# exception and those the compiler proved unreachable.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
cd "${root}"
build=$(cd "${1:-build/asan}" && pwd)
minimum=$(tr -d '[:space:]' <scripts/coverage-minimum)

if ! find "${build}" -name '*.gcda' -print -quit | grep -q .; then
  echo "coverage-report: no coverage counters in ${build}: build it with --coverage" \
    "(the asan preset) and run its tests first" >&2
  exit 1
fi

# The gcov of the compiler that built the folder.
gcov=gcov
compiler=$(sed -n 's/^CMAKE_CXX_COMPILER:[A-Z]*=//p' "${build}/CMakeCache.txt")
version=$("${compiler:-c++}" -dumpversion 2>/dev/null | cut -d. -f1 || true)
if [[ -n "${version}" ]] && command -v "gcov-${version}" >/dev/null; then
  gcov="gcov-${version}"
fi

summary=$(mktemp)
trap 'rm -f "${summary}"' EXIT
gcovr --root "${root}" \
  --filter "${root}/(setUserPassword|security|lineEdit|utils)/" \
  --exclude "${root}/(tests|bench|build)/" \
  --gcov-executable "${gcov}" \
  --exclude-unreachable-branches --exclude-throw-branches \
  --json-summary "${summary}" -j "$(nproc)" \
  "${build}" >/dev/null

python3 - "${summary}" "${minimum}" <<'EOF'
import json
import sys

summary = json.load(open(sys.argv[1]))
minimum = float(sys.argv[2])
folders = ["setUserPassword", "security", "lineEdit", "utils/core", "utils/json", "utils/io",
           "utils/filesystem", "utils/string"]
totals = {folder: [0, 0, 0, 0] for folder in folders + ["other"]}
for entry in summary["files"]:
    name = entry["filename"]
    folder = next((f for f in folders if name.startswith(f + "/")), "other")
    counts = totals[folder]
    counts[0] += entry["line_covered"]
    counts[1] += entry["line_total"]
    counts[2] += entry["branch_covered"]
    counts[3] += entry["branch_total"]


def percent(covered, total):
    return 100.0 * covered / total if total else 100.0


def row(label, counts):
    return (f"{label:<18} {percent(counts[0], counts[1]):6.1f}% {counts[0]:>6}/{counts[1]:<6} "
            f"{percent(counts[2], counts[3]):6.1f}% {counts[2]:>6}/{counts[3]:<6}")


print(f"{'folder':<18} {'lines':>21} {'branches':>21}")
for folder in folders + ["other"]:
    if folder != "other" or totals[folder][1]:
        print(row(folder, totals[folder]))
total = [sum(counts[i] for counts in totals.values()) for i in range(4)]
print(row("total", total))
# A folder without a counted line means the counters were not matched to
# the sources (a path mapping, a filter): no figure would be true then.
unmatched = [folder for folder in folders if totals[folder][1] == 0]
if unmatched:
    print(f"coverage-report: no line of {', '.join(unmatched)} was counted; the report "
          f"cannot be trusted", file=sys.stderr)
    sys.exit(1)
lines = percent(total[0], total[1])
if lines < minimum:
    print(f"coverage-report: product line coverage {lines:.1f}% is below the minimum of "
          f"{minimum:.1f}% (scripts/coverage-minimum)", file=sys.stderr)
    sys.exit(1)
print(f"product line coverage {lines:.1f}% (minimum {minimum:.1f}%)")
EOF
