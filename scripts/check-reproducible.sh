#!/usr/bin/env bash
# Checks that the shipped files are reproducible: built twice from the last
# commit, in two clones at different paths, one after the other (so at
# different times), the Debian package and the Windows program are the same
# byte for byte. Only what ships is built (scripts/package.sh --build-only;
# the Windows program alone, no tests).
#
# The Windows program is KorvanePassword.exe when a MinGW build of zxcvbn is
# given (ZXCVBN_ROOT, as for scripts/test-windows.sh), and otherwise the
# test variant KorvanePasswordTestVariant.exe, the same program linked to
# the test estimator: both are built with the same flags.
#
#   scripts/check-reproducible.sh          # the Debian package and the .exe
#   scripts/check-reproducible.sh deb      # the Debian package only
#   scripts/check-reproducible.sh exe      # the Windows program only
#
# On a difference it prints where the files first differ and what differs
# in them (file lists, control files, each file's bytes; for the .exe the
# PE headers), and exits 1. Uncommitted changes are not part of the check.
set -euo pipefail
cd "$(dirname "$0")/.."

parts=(deb exe)
if (($# > 0)); then
  case "$1" in
  deb | exe) parts=("$1") ;;
  *)
    echo "usage: scripts/check-reproducible.sh [deb|exe]" >&2
    exit 2
    ;;
  esac
fi

source=$(pwd)
commit=$(git rev-parse HEAD)
if [[ -n "$(git status --porcelain --untracked-files=no)" ]]; then
  echo "check-reproducible: uncommitted changes are left out; checking commit ${commit}"
fi

work=$(mktemp -d "${TMPDIR:-/tmp}/korvane-reproducible.XXXXXX")
trap 'rm -rf "${work}"' EXIT
# Two folders of different names and depths.
firstTree="${work}/first/korvane-password"
secondTree="${work}/second-build/tree/KorvanePasswordSource"

cloneAt() {
  mkdir -p "$(dirname "$1")"
  git clone --quiet --no-checkout "${source}" "$1"
  git -C "$1" checkout --quiet "${commit}"
}
cloneAt "${firstTree}"
cloneAt "${secondTree}"

jobs=$(nproc)
status=0

buildPackage() {
  (cd "$1" && bash scripts/package.sh --build-only >/dev/null)
  ls "$1"/build/release/korvane-password_*_amd64.deb
}

explainPackages() {
  local first=$1 second=$2
  echo "-- file lists (dpkg-deb -c):"
  diff <(dpkg-deb -c "${first}") <(dpkg-deb -c "${second}") || true
  echo "-- control files (dpkg-deb -I):"
  diff <(dpkg-deb -I "${first}") <(dpkg-deb -I "${second}") || true
  mkdir -p "${work}/unpacked1" "${work}/unpacked2"
  dpkg-deb -R "${first}" "${work}/unpacked1"
  dpkg-deb -R "${second}" "${work}/unpacked2"
  echo "-- files whose bytes differ:"
  diff -r "${work}/unpacked1" "${work}/unpacked2" || true
  echo "-- build folders named in the program:"
  grep -a -o -e "${firstTree}[^[:space:]]*" -e "${secondTree}[^[:space:]]*" \
    "${work}/unpacked1/usr/bin/KorvanePassword" "${work}/unpacked2/usr/bin/KorvanePassword" | sort -u | head -n 10 || true
}

buildWindowsProgram() {
  local tree=$1 target=$2
  local configure=(cmake --preset mingw)
  if [[ -n "${ZXCVBN_ROOT:-}" ]]; then
    configure+=("-DZXCVBN_ROOT=${ZXCVBN_ROOT}")
  fi
  (cd "${tree}" && "${configure[@]}" >/dev/null &&
    cmake --build --preset mingw -j "${jobs}" --target "${target}" >/dev/null)
}

explainPrograms() {
  local first=$1 second=$2
  echo "-- first differing bytes (offset, octal values):"
  cmp -l "${first}" "${second}" | head -n 10 || true
  echo "-- PE headers (objdump -p):"
  diff <(x86_64-w64-mingw32-objdump -p "${first}") <(x86_64-w64-mingw32-objdump -p "${second}") | head -n 40 || true
  echo "-- build folders named in the program:"
  grep -a -o -e "${firstTree}[^[:space:]]*" -e "${secondTree}[^[:space:]]*" "${first}" "${second}" |
    sort -u | head -n 10 || true
}

for part in "${parts[@]}"; do
  case "${part}" in
  deb)
    echo "== Debian package, first build: ${firstTree}"
    first=$(buildPackage "${firstTree}")
    echo "== Debian package, second build: ${secondTree}"
    second=$(buildPackage "${secondTree}")
    if cmp "${first}" "${second}"; then
      echo "Debian package reproducible: $(basename "${first}") $(sha256sum <"${first}" | cut -d' ' -f1)"
    else
      explainPackages "${first}" "${second}"
      echo "check-reproducible: the two Debian packages differ" >&2
      status=1
    fi
    ;;
  exe)
    if [[ -n "${ZXCVBN_ROOT:-}" ]]; then
      target=KorvanePassword
      program=build/mingw/setUserPassword/KorvanePassword.exe
    else
      target=KorvanePasswordTestVariant
      program=build/mingw/tests/strengthEstimator/KorvanePasswordTestVariant.exe
    fi
    echo "== ${target}.exe, first build: ${firstTree}"
    buildWindowsProgram "${firstTree}" "${target}"
    echo "== ${target}.exe, second build: ${secondTree}"
    buildWindowsProgram "${secondTree}" "${target}"
    if cmp "${firstTree}/${program}" "${secondTree}/${program}"; then
      echo "Windows program reproducible: ${target}.exe $(sha256sum <"${firstTree}/${program}" | cut -d' ' -f1)"
    else
      explainPrograms "${firstTree}/${program}" "${secondTree}/${program}"
      echo "check-reproducible: the two Windows programs differ" >&2
      status=1
    fi
    ;;
  esac
done
exit "${status}"
