#!/usr/bin/env bash
# Checks every name in the product, test and benchmark sources against the
# naming rules of .clang-tidy, with clang-tidy 16 (Debian's default
# clang-tidy 14 cannot parse some of the C++20 code, such as a structured
# binding captured by a lambda).
#
#   scripts/check-naming.sh [source folder] [build folder]
#
# The build folder (default: build/release) is a configured build whose
# compile_commands.json gives each source's flags. Sources it does not build
# (the benchmarks and the fuzz targets) take theirs from a second database
# that this script configures, without building, in <build folder>/naming.
# The Windows-only sources (*_windows.cpp) are in neither database on Linux
# and are skipped. Headers are checked where a checked source includes them;
# each finding is printed once however many sources include its header.
# Prints every finding and exits non-zero when there is one, or when a
# source cannot be parsed or is in neither database.
set -euo pipefail
root=$(cd "${1:-$(dirname "$0")/..}" && pwd)
build=$(cd "${2:-${root}/build/release}" && pwd)
tidy=${CLANG_TIDY:-clang-tidy-16}
cd "${root}"

if [[ ! -f "${build}/compile_commands.json" ]]; then
  echo "check-naming: ${build}/compile_commands.json is missing; configure that build first" >&2
  exit 1
fi
extra="${build}/naming"
cmake -S "${root}" -B "${extra}" -G Ninja -DCMAKE_BUILD_TYPE=Release \
  -DCMAKE_EXPORT_COMPILE_COMMANDS=ON -DKORVANE_BUILD_TESTS=OFF \
  -DKORVANE_BUILD_BENCHMARKS=ON -DKORVANE_BUILD_FUZZERS=ON >"${extra}.log" 2>&1 || {
  cat "${extra}.log" >&2
  echo "check-naming: configuring ${extra} failed" >&2
  exit 1
}

inDatabase() {  # inDatabase <folder> <source>: the folder's database compiles it
  grep -qF "\"file\": \"${root}/$2\"" "$1/compile_commands.json"
}

status=0
releaseSources=()
extraSources=()
while IFS= read -r -d '' file; do
  if inDatabase "${build}" "${file}"; then
    releaseSources+=("${file}")
  elif inDatabase "${extra}" "${file}"; then
    extraSources+=("${file}")
  else
    echo "check-naming: ${file} is in no compile database" >&2
    status=1
  fi
done < <(git ls-files -z -- 'setUserPassword/*.cpp' 'security/*.cpp' 'lineEdit/*.cpp' \
  'utils/*.cpp' 'tests/*.cpp' 'bench/*.cpp' ':(exclude)*_windows.cpp')

# The project's own folders, so that system and generated headers are not
# checked; the root is escaped for use in a regular expression.
escapedRoot=$(printf '%s' "${root}" | sed 's/[][\.*^$+?(){}|]/\\&/g')
headerFilter="^${escapedRoot}/(setUserPassword|security|lineEdit|utils|tests|bench)/"

logs=$(mktemp -d)
trap 'rm -rf "${logs}"' EXIT

# Each source's findings go to a file of their own, so that parallel runs
# do not interleave. The databases hold GCC's flags: clang 16 spells C++23
# "c++2b" (the later -std wins), does not know every GCC warning, and
# warns more under them (-Wconversion takes in sign conversions), which
# -Werror would turn into errors; only the naming rules count here.
runTidy() {  # runTidy <database folder> <source>...
  local database=$1
  shift
  (($# == 0)) && return 0
  # shellcheck disable=SC2016  # the inner script expands its own arguments
  printf '%s\0' "$@" | xargs -0 -n 1 -P "$(nproc)" bash -c '
    out="$1/$(printf "%s" "$5" | tr / _).log"
    "$2" -p "$3" --quiet --header-filter="$4" --extra-arg=-std=c++2b \
      --extra-arg=-Wno-unknown-warning-option \
      --extra-arg=-Wno-error "$5" >"${out}" 2>&1 || echo "exit status $?" >>"${out}"
  ' runTidy "${logs}" "${tidy}" "${database}" "${headerFilter}"
}
runTidy "${build}" "${releaseSources[@]}"
runTidy "${extra}" "${extraSources[@]}"

# A finding is "file:line:column: warning|error: text [check]"; one in a
# header is reported by every source that includes it, so print each once.
findings=$(cat "${logs}"/*.log | grep -E ': (warning|error): ' | sort -u || true)
failures=$(grep -l '^exit status ' "${logs}"/*.log || true)
if [[ -n "${findings}" ]]; then
  printf '%s\n' "${findings}"
  status=1
fi
if [[ -n "${failures}" && -z "${findings}" ]]; then
  # clang-tidy failed without a finding to show: print its whole output.
  while IFS= read -r log; do cat "${log}"; done <<<"${failures}"
  status=1
fi
echo "check-naming: $((${#releaseSources[@]} + ${#extraSources[@]})) sources checked"
exit "${status}"
