#!/usr/bin/env bash
# Cross-compiles the Windows build with MinGW-w64 (warnings are errors) and
# runs its tests under Wine: every library and test program, the program's
# resources (version information, manifest), then the whole Windows program
# end to end: with redirected input
# (tests/setUserPassword/EndToEndTest_windows.sh, with the FileHolder test
# program for the runs against a password file held open) and at Wine's
# console on a pseudo-terminal
# (tests/setUserPassword/ConsoleEndToEndTest_windows.py). Wine runs in its
# default code page (1252): the tests must pass without a UTF-8 locale.
# Then the program's hardening, read from its PE headers and symbols (ASLR
# with high-entropy addresses, DEP, the stack protector), and the Windows
# installer: built by scripts/package-windows.sh, installed, used and
# removed under Wine (tests/installer/InstallerTest_windows.sh).
#
# The program is KorvanePassword.exe when a MinGW build of zxcvbn is given
# (ZXCVBN_ROOT=<folder with include/zxcvbn.h and lib/libzxcvbn.a>), and
# otherwise KorvanePasswordTestVariant.exe, the same program linked to the
# deterministic test estimator of tests/strengthEstimator/ (test builds
# only, never published; the installer's test packages it under a test
# build's name).
#
#   bash scripts/test-windows.sh
#   ZXCVBN_ROOT=/opt/zxcvbn-mingw bash scripts/test-windows.sh
#
# Wine runs in a fresh prefix in a temporary folder, removed on exit, with
# no GUI. Exits non-zero on any failure.
set -euo pipefail
cd "$(dirname "$0")/.."

for tool in x86_64-w64-mingw32-g++-posix x86_64-w64-mingw32-windres x86_64-w64-mingw32-objdump \
  x86_64-w64-mingw32-nm wine wineserver winepath script cmake ctest python3 wixl msibuild msiinfo; do
  if ! command -v "${tool}" >/dev/null; then
    echo "test-windows: ${tool} is missing (bash scripts/install-deps.sh --windows)" >&2
    exit 1
  fi
done

build=build/mingw
jobs=$(nproc)

configure=(cmake --preset mingw)
if [[ -n "${ZXCVBN_ROOT:-}" ]]; then
  configure+=("-DZXCVBN_ROOT=${ZXCVBN_ROOT}")
fi
echo "== mingw: configure and build"
"${configure[@]}" >/dev/null
cmake --build --preset mingw -j "${jobs}"

# Wine: a private prefix, its server started with every standard stream
# on /dev/null (otherwise Wine's services keep CTest's pipes open and every
# test waits for them), no debug output, no Mono or Gecko installer.
WINEPREFIX=$(mktemp -d "${TMPDIR:-/tmp}/korvane-wine.XXXXXX")
export WINEPREFIX WINEDEBUG=-all WINEDLLOVERRIDES="mscoree,mshtml=" DISPLAY=
cleanup() {
  wineserver -k >/dev/null 2>&1 || true
  rm -rf "${WINEPREFIX}"
}
trap cleanup EXIT
echo "== Wine: starting in ${WINEPREFIX}"
wineserver -p </dev/null >/dev/null 2>&1
timeout 300 wine wineboot --init </dev/null >/dev/null 2>&1

status=0
echo "== mingw: tests under Wine"
summary="unit tests failed"
# Wine now and then fails to start a program at all (it dies at once,
# printing nothing); a test that fails is run once more before it counts.
if ctest --preset mingw -j "${jobs}" --repeat until-pass:2; then
  summary="unit tests passed"
else
  status=1
fi

program="${build}/setUserPassword/KorvanePassword.exe"
if [[ ! -f "${program}" ]]; then
  program="${build}/tests/strengthEstimator/KorvanePasswordTestVariant.exe"
fi
if [[ -f "${program}" ]]; then
  # The resources linked into the program: the version information carries
  # the number that -Version prints, the manifest the UTF-8 code page and
  # long-path awareness.
  echo "== $(basename "${program}") resources"
  resources=$(x86_64-w64-mingw32-windres -i "${program}" -O rc)
  version=$(wine "${program}" -Version </dev/null 2>/dev/null | head -n1 | tr -d '\r')
  version=${version##* }
  if [[ -n "${version}" ]] &&
    grep -q "^ FILEVERSION ${version//./, }, 0\$" <<<"${resources}" &&
    grep -q "^ PRODUCTVERSION ${version//./, }, 0\$" <<<"${resources}" &&
    grep -q "VALUE \"FileVersion\", \"${version}\"" <<<"${resources}" &&
    grep -q '<activeCodePage [^>]*>UTF-8</activeCodePage>' <<<"${resources}" &&
    grep -q '<longPathAware [^>]*>true</longPathAware>' <<<"${resources}"; then
    summary+=", resources passed (version ${version})"
  else
    echo "the version resource or the manifest does not match version \"${version}\"" >&2
    summary+=", resources FAILED"
    status=1
  fi
  echo "== $(basename "${program}") end to end under Wine, redirected input"
  if KORVANE_FILE_HOLDER="${build}/tests/setUserPassword/FileHolder.exe" \
    timeout 1800 bash tests/setUserPassword/EndToEndTest_windows.sh "${program}" wine </dev/null; then
    summary+=", redirected end-to-end passed"
  else
    summary+=", redirected end-to-end FAILED"
    status=1
  fi
  echo "== $(basename "${program}") end to end under Wine, at the console"
  if timeout 1800 python3 tests/setUserPassword/ConsoleEndToEndTest_windows.py "${program}" wine </dev/null; then
    summary+=", console end-to-end passed"
  else
    summary+=", console end-to-end FAILED"
    status=1
  fi
  # Hardening in the PE headers: relocatable at high-entropy addresses
  # (ASLR), data not executable (DEP); and the stack protector's guard and
  # failure handler (from the static libssp) linked in.
  echo "== $(basename "${program}") hardening"
  headers=$(x86_64-w64-mingw32-objdump -p "${program}")
  symbols=$(x86_64-w64-mingw32-nm "${program}")
  hardening=passed
  for characteristic in HIGH_ENTROPY_VA DYNAMIC_BASE NX_COMPAT; do
    if ! grep -qw "${characteristic}" <<<"${headers}"; then
      echo "the program's DllCharacteristics lack ${characteristic}" >&2
      hardening=FAILED
    fi
  done
  for symbol in __stack_chk_guard __stack_chk_fail; do
    if ! grep -q " [TtBbDdRr] ${symbol}\$" <<<"${symbols}"; then
      echo "the program lacks the stack protector's ${symbol}" >&2
      hardening=FAILED
    fi
  done
  if ! grep -q '^Time/Date.*1970$' <<<"${headers}"; then
    echo "the program's PE header holds a link time: $(grep '^Time/Date' <<<"${headers}")" >&2
    hardening=FAILED
  fi
  if [[ "${hardening}" == FAILED ]]; then
    status=1
  fi
  summary+=", hardening ${hardening}"

  echo "== Windows installer under Wine"
  packageOptions=()
  if [[ "$(basename "${program}")" != KorvanePassword.exe ]]; then
    packageOptions=(--test-variant)
  fi
  if packageOutput=$(bash scripts/package-windows.sh "${packageOptions[@]}" </dev/null) &&
    installer=$(sed -n 's/^installer: //p' <<<"${packageOutput}") &&
    [[ -f "${installer}" ]] &&
    timeout 900 bash tests/installer/InstallerTest_windows.sh "${installer}" "$(basename "${program}")" </dev/null; then
    summary+=", installer passed"
  else
    summary+=", installer FAILED"
    status=1
  fi
  summary+=" ($(basename "${program}"))"
else
  summary+=", no program was built"
  status=1
fi

if ((status == 0)); then
  echo "Windows build under Wine: OK (${summary})"
else
  echo "Windows build under Wine: FAILED (${summary})"
fi
exit "${status}"
