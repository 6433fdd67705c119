#!/usr/bin/env bash
# Mutation sampling: how many small faults planted in the product code do the
# tests notice? Draws N mutants from a seed (comparison, logical, off-by-one
# and boolean-return changes of setUserPassword/, security/, lineEdit/ and
# utils/; see scripts/mutation_sample.py), builds each in a copy of the
# committed tree and runs the tests on it.
#
#   scripts/mutation-sample.sh [-n N] [-s SEED] [--only PATH_PREFIX] [--rev REV]
#       -n N        how many mutants (default 10)
#       -s SEED     the seed of the draw (default 1): the same seed and tree
#                   give the same mutants
#       --only P    draw only from files whose path starts with P
#                   (for instance lineEdit/ or utils/json/)
#       --rev REV   sample the tree of commit REV instead of HEAD (to compare
#                   the tests of an earlier commit with today's)
#
# The working tree is never touched: the commit is exported with git archive into
# a temporary folder, configured once as a release build and built; then for
# each mutant the file is changed, the build brought up to date, the tests
# run (ctest -E 'Naming|FormatTest' --timeout 120 --stop-on-failure -j2: the
# first failure decides) and the file put back.
# Each mutant ends as
#   killed        the build succeeded and at least one test failed
#   survived      the build succeeded and every test passed
#   not compiled  the mutated code does not compile
#   unchanged     the build made the very same object files (the line is
#                 not built on this platform, or the compiler gave the same
#                 code): no test can notice it
# and the score is killed / (killed + survived). *_windows.cpp files are
# left out: this platform does not compile them.
#
# Slow (a full build, then a build and a test run per mutant) and not run by
# CI. KORVANE_MUTATION_JOBS sets the parallel jobs of builds and tests
# (default 2); KORVANE_MUTATION_KEEP=1 keeps the temporary folder.
set -euo pipefail

count=10
seed=1
only=""
rev=HEAD
while (($# > 0)); do
  if [[ "$1" == -n || "$1" == -s || "$1" == --only || "$1" == --rev ]] && (($# < 2)); then
    echo "mutation-sample: $1 needs a value (see --help)" >&2
    exit 2
  fi
  case "$1" in
    -n)
      count=$2
      shift 2
      ;;
    -s)
      seed=$2
      shift 2
      ;;
    --only)
      only=$2
      shift 2
      ;;
    --rev)
      rev=$2
      shift 2
      ;;
    -h | --help)
      sed -n '2,/^set -euo/p' "$0" | sed '$d' | sed 's/^# \{0,1\}//'
      exit 0
      ;;
    *)
      echo "mutation-sample: unknown argument: $1 (see --help)" >&2
      exit 2
      ;;
  esac
done
if ! [[ "${count}" =~ ^[0-9]+$ && "${seed}" =~ ^[0-9]+$ ]]; then
  echo "mutation-sample: -n and -s take whole numbers" >&2
  exit 2
fi

root=$(cd "$(dirname "$0")/.." && pwd)
helper="${root}/scripts/mutation_sample.py"
jobs=${KORVANE_MUTATION_JOBS:-2}
work=$(mktemp -d "${TMPDIR:-/tmp}/korvane-mutation.XXXXXX")
if [[ "${KORVANE_MUTATION_KEEP:-0}" != 1 ]]; then
  trap 'rm -rf "${work}"' EXIT
fi
tree="${work}/tree"
build="${tree}/build/release"
mkdir -p "${tree}"

commit=$(git -C "${root}" rev-parse --verify "${rev}^{commit}")
echo "== copy of ${rev} ($(git -C "${root}" rev-parse --short "${commit}")) in ${tree}"
git -C "${root}" archive "${commit}" | tar -x -C "${tree}"

mutants="${work}/mutants"
python3 "${helper}" draw "${tree}" "${count}" "${seed}" "${only}" >"${mutants}"
head -n 1 "${mutants}" | sed 's/^# /== /'

echo "== configure and build (release)"
cmake -S "${tree}" -B "${build}" -G Ninja -DCMAKE_BUILD_TYPE=Release \
  -DKORVANE_NAMING_TEST=OFF >"${work}/configure.log" 2>&1 ||
  {
    cat "${work}/configure.log"
    exit 1
  }
if ! cmake --build "${build}" -j "${jobs}" >"${work}/build.log" 2>&1; then
  tail -n 40 "${work}/build.log"
  echo "mutation-sample: the unchanged tree does not build" >&2
  exit 1
fi

run_tests() {
  (cd "${build}" && ctest -E 'Naming|FormatTest' --timeout 120 --stop-on-failure -j "${jobs}" \
    >"${work}/ctest.log" 2>&1)
}

# A fingerprint of every object file: a mutant that leaves them all as they
# were changes nothing the tests could see.
objects_digest() {
  find "${build}" -name '*.o' -print0 | sort -z | xargs -0 md5sum | md5sum
}

echo "== tests of the unchanged tree"
if ! run_tests; then
  grep -E 'tests passed|\(Failed\)|\(Timeout\)|Not Run' "${work}/ctest.log" >&2 || true
  echo "mutation-sample: tests fail without any mutant; fix them first" >&2
  exit 1
fi
baseline=$(objects_digest)

killed=0
survived=0
not_compiled=0
unchanged=0
index=0
total=$(grep -vc '^#' "${mutants}" || true)
while IFS=$'\t' read -r file line column operator original replacement; do
  [[ "${file}" == \#* ]] && continue
  index=$((index + 1))
  source="${tree}/${file}"
  cp -p "${source}" "${work}/original"
  before=$(sed -n "${line}p" "${source}")
  python3 "${helper}" apply "${tree}" "${file}" "${line}" "${column}" "${original}" \
    "${replacement}"
  after=$(sed -n "${line}p" "${source}")

  if ! cmake --build "${build}" -j "${jobs}" >"${work}/build.log" 2>&1; then
    verdict="not compiled"
    not_compiled=$((not_compiled + 1))
  elif [[ "$(objects_digest)" == "${baseline}" ]]; then
    verdict="unchanged"
    unchanged=$((unchanged + 1))
  elif run_tests; then
    verdict="survived"
    survived=$((survived + 1))
  else
    verdict="killed"
    killed=$((killed + 1))
  fi

  # The original back, newer than the mutant's objects so that the next
  # build compiles it again.
  cp "${work}/original" "${source}"
  touch "${source}"

  echo "[${index}/${total}] ${verdict}: ${file}:${line} (${operator})"
  echo "    - ${before#"${before%%[![:space:]]*}"}"
  echo "    + ${after#"${after%%[![:space:]]*}"}"
  if [[ "${verdict}" == killed ]]; then
    failed=$(grep -oE '[0-9]+ - [^ ]+ \((Failed|Timeout|SEGFAULT|Subprocess aborted|Exception)' \
      "${work}/ctest.log" | head -n 3 | sed -E 's/^[0-9]+ - ([^ ]+) .*/\1/' | paste -sd ',' - || true)
    [[ -n "${failed}" ]] && echo "    by ${failed//,/, }"
  fi
done <"${mutants}"

# Bring the build back to the unchanged tree's objects: no later mutant is
# left to do it, and a kept folder then holds a clean build.
cmake --build "${build}" -j "${jobs}" >/dev/null 2>&1 || true

echo "== ${killed} killed, ${survived} survived, ${not_compiled} not compiled," \
  "${unchanged} unchanged"
if ((killed + survived > 0)); then
  awk -v k="${killed}" -v s="${survived}" \
    'BEGIN { printf "== score: %d / %d = %.1f%%\n", k, k + s, 100 * k / (k + s) }'
else
  echo "== score: none (no mutant was built and tested)"
fi
