#!/usr/bin/env bash
# Builds the Windows installer (MSI) of the Korvane Password Tool with
# Debian's wixl (installer/KorvanePassword.wxs): per machine, into
# "Program Files\Korvane\Password Tool", with that folder added to the
# system PATH (and taken off it again on removal), the manual as plain text
# (KorvanePassword.txt) and the copyright file beside the program. "Apps &
# features" shows the publisher (Korvane Software) and the version of the
# CMake project() line; an installer of a later version replaces an
# installed one (a constant UpgradeCode, a ProductCode per version), an
# earlier one is refused.
#
# The program is the real KorvanePassword.exe, which needs zxcvbn built for
# MinGW-w64: ZXCVBN_ROOT names a folder with include/zxcvbn.h and
# lib/libzxcvbn.a (see README.md). Without it the script stops with
# status 1 and says what is missing.
#
#   ZXCVBN_ROOT=/opt/zxcvbn-mingw scripts/package-windows.sh
#       -> build/mingw/package/korvane-password-<version>-x64.msi
#
# --test-variant packages KorvanePasswordTestVariant.exe (the program with
# the deterministic test estimator, built by the mingw preset without
# zxcvbn) the same way, for the installer's own test under Wine
# (tests/setUserPassword/InstallerTest_windows.sh). Its file name, product
# name and UpgradeCode say that it is a test build; it is never published:
#
#   scripts/package-windows.sh --test-variant
#       -> build/mingw/package/korvane-password-TEST-BUILD-not-for-use-<version>-x64.msi
#
# The script prints the installer's path on its last line.
set -euo pipefail
cd "$(dirname "$0")/.."

testVariant=false
if [[ "${1:-}" == "--test-variant" ]]; then
  testVariant=true
elif (($# > 0)); then
  echo "usage: scripts/package-windows.sh [--test-variant]" >&2
  exit 2
fi

for tool in wixl msibuild groff x86_64-w64-mingw32-g++-posix x86_64-w64-mingw32-strip python3 cmake; do
  if ! command -v "${tool}" >/dev/null; then
    echo "package-windows: ${tool} is missing (bash scripts/install-deps.sh --windows)" >&2
    exit 1
  fi
done

build=build/mingw
version=$(sed -n 's/^project(KorvanePassword VERSION \([0-9.]*\).*/\1/p' CMakeLists.txt)
if [[ -z "${version}" ]]; then
  echo "package-windows: no version in the project() line of CMakeLists.txt" >&2
  exit 1
fi

if ${testVariant}; then
  # A code of its own: a test build never replaces the product, nor the
  # product a test build.
  upgradeCode=09E70236-44B3-4435-BE48-C215E33588C6
  productName="Korvane Password Tool TEST BUILD (not for use)"
  target=KorvanePasswordTestVariant
  program="${build}/tests/strengthEstimator/KorvanePasswordTestVariant.exe"
  output="${build}/package/korvane-password-TEST-BUILD-not-for-use-${version}-x64.msi"
  echo "== mingw: configure and build ${target}"
  cmake --preset mingw >/dev/null
  if [[ -n "$(sed -n 's/^ZXCVBN_ROOT:[A-Z]*=\(..*\)$/\1/p' "${build}/CMakeCache.txt")" ]]; then
    echo "package-windows: ${build} is configured with zxcvbn (ZXCVBN_ROOT), which builds the real program and no test variant; package that one without --test-variant" >&2
    exit 1
  fi
else
  upgradeCode=2426BFEA-BBF3-4FD3-A40C-31CF8E7E28E6
  productName="Korvane Password Tool"
  target=KorvanePassword
  program="${build}/setUserPassword/KorvanePassword.exe"
  output="${build}/package/korvane-password-${version}-x64.msi"
  if [[ -z "${ZXCVBN_ROOT:-}" ]]; then
    echo "package-windows: ZXCVBN_ROOT is not set. The Windows program needs the zxcvbn strength estimator built for MinGW-w64: set ZXCVBN_ROOT to a folder that holds include/zxcvbn.h and lib/libzxcvbn.a (README.md, \"Windows\")." >&2
    exit 1
  fi
  for file in include/zxcvbn.h lib/libzxcvbn.a; do
    if [[ ! -f "${ZXCVBN_ROOT}/${file}" ]]; then
      echo "package-windows: ${ZXCVBN_ROOT}/${file} is missing; ZXCVBN_ROOT must hold include/zxcvbn.h and lib/libzxcvbn.a built for MinGW-w64" >&2
      exit 1
    fi
  done
  echo "== mingw: configure and build ${target}"
  cmake --preset mingw "-DZXCVBN_ROOT=${ZXCVBN_ROOT}" >/dev/null
fi
cmake --build --preset mingw -j "$(nproc)" --target "${target}"

# The files to install: the program without its symbol table, the manual
# page as plain ASCII text and the copyright file, both with Windows line
# ends. strip writes the PE header's time stamp anew, from SOURCE_DATE_EPOCH
# when it is set: 0, as the linker left it (no build time in the program).
staging="${build}/package/staging"
rm -rf "${staging}"
mkdir -p "${staging}"
SOURCE_DATE_EPOCH=0 x86_64-w64-mingw32-strip -o "${staging}/${target}.exe" "${program}"
groff -man -Tascii -P-cbou doc/KorvanePassword.1 | sed 's/$/\r/' >"${staging}/KorvanePassword.txt"
sed 's/$/\r/' doc/copyright >"${staging}/copyright.txt"

# One ProductCode per version: a name-based GUID of the version under the
# UpgradeCode, so a rebuild of one version is the same product.
productCode=$(python3 -c 'import sys, uuid; print(str(uuid.uuid5(uuid.UUID(sys.argv[1]), sys.argv[2])).upper())' \
  "${upgradeCode}" "${version}")

rm -f "${output}"
wixl -a x64 -o "${output}" \
  -D "Version=${version}" \
  -D "ProductName=${productName}" \
  -D "ProductCode=${productCode}" \
  -D "UpgradeCode=${upgradeCode}" \
  -D "ProgramFile=${staging}/${target}.exe" \
  -D "ManualFile=${staging}/KorvanePassword.txt" \
  -D "CopyrightFile=${staging}/copyright.txt" \
  installer/KorvanePassword.wxs

# The system PATH: wixl has no Environment element, so the Environment
# table is added to the built database. "=-*PATH" with "[~];[INSTALLDIR]":
# the system variable (*), the folder appended to it on installation (=)
# and that part taken off again on removal (-); WriteEnvironmentStrings and
# RemoveEnvironmentStrings do it at their standard places in the sequence.
tables="${build}/package/tables"
rm -rf "${tables}"
mkdir -p "${tables}"
printf '%s\n' $'Environment\tName\tValue\tComponent_' $'s72\tl255\tL255\ts72' \
  $'Environment\tEnvironment' $'SystemPath\t=-*PATH\t[~];[INSTALLDIR]\tProgram' \
  >"${tables}/Environment.idt"
msibuild "${output}" -i "${tables}/Environment.idt" \
  -q "INSERT INTO \`InstallExecuteSequence\` (\`Action\`, \`Sequence\`) VALUES ('RemoveEnvironmentStrings', 3300)" \
  -q "INSERT INTO \`InstallExecuteSequence\` (\`Action\`, \`Sequence\`) VALUES ('WriteEnvironmentStrings', 5200)"

# What was built, read back from the database.
properties=$(msiinfo export "${output}" Property | tr -d '\r')
for property in "Manufacturer	Korvane Software" "ProductVersion	${version}" \
  "UpgradeCode	{${upgradeCode}}" "ALLUSERS	1"; do
  if ! grep -qixF "${property}" <<<"${properties}"; then
    echo "package-windows: the installer lacks the property \"${property}\"" >&2
    exit 1
  fi
done
if ! msiinfo export "${output}" Environment | grep -qF 'SystemPath'; then
  echo "package-windows: the installer lacks the PATH entry" >&2
  exit 1
fi
echo "installer: ${output}"
