#!/usr/bin/env bash
# The Windows installer end to end under Wine, as an administrator would use
# it: installed silently, the program run from where it was installed and
# through the system PATH, a password set in %ProgramData%\Korvane\Config,
# a later version installed over it, and everything removed silently again.
#
#   tests/installer/InstallerTest_windows.sh <installer.msi> <program file name>
#
# The installer is one made by scripts/package-windows.sh (CI uses its
# --test-variant, whose program has the deterministic test estimator).
# Runs in the Wine prefix of the environment (WINEPREFIX; scripts/test-windows.sh
# starts a fresh one) and checks:
# - msiexec /i ... /qn exits 0 and installs the program, its manual
#   (KorvanePassword.txt) and copyright.txt into
#   C:\Program Files\Korvane\Password Tool, and nothing else there;
# - the folder is on the system PATH (the registry's system environment),
#   and a program started afterwards finds the program by name;
# - "Apps & features" (the Uninstall key) shows the product with the
#   publisher Korvane Software and the project's version;
# - the installed program is marked for ASLR with high-entropy addresses
#   and DEP, holds no build time, prints its version and sets a password in a fresh
#   %ProgramData%\Korvane\Config (users.json made by the test, the hash
#   verified with the system's crypt);
# - an installer of a later version (this one with its version raised and
#   a ProductCode of its own, as the script makes each version) replaces
#   the installed one: one product left, the later one;
# - msiexec /x ... /qn exits 0 and removes every installed file and folder,
#   and the PATH entry, and leaves the configuration folder with its
#   password file as it was.
# Exits non-zero when any check fails.
set -uo pipefail

msi=$1
programName=$2
version=$(sed -n 's/^project(KorvanePassword VERSION \([0-9.]*\).*/\1/p' \
  "$(dirname "$0")/../../CMakeLists.txt")
password="Tangerine-Kettle-Orbit-47"
aliceUuid="3f2b8c1e-6d4a-4e8b-9a7c-1b2d3e4f5a6b"

work=$(mktemp -d "${TMPDIR:-/tmp}/korvane-installer.XXXXXX")
trap 'rm -rf "${work}"' EXIT

passed=0
failed=0
check() {  # check <description> <command...>
  local description=$1
  shift
  if "$@"; then
    passed=$((passed + 1))
  else
    failed=$((failed + 1))
    echo "FAILED: ${description}" >&2
  fi
}

# run <command...>: runs a Windows command under Wine with no input; sets
# status, out and err (without "\r").
run() {
  wine "$@" </dev/null >"${work}/out" 2>"${work}/err"
  status=$?
  out=$(tr -d '\r' <"${work}/out")
  err=$(tr -d '\r' <"${work}/err")
}

environmentKey='HKLM\System\CurrentControlSet\Control\Session Manager\Environment'
systemPath() {
  wine reg query "${environmentKey}" /v PATH </dev/null 2>/dev/null | tr -d '\r' |
    sed -n 's/^ *PATH *REG_[A-Z_]* *//p'
}
uninstallKey() { printf 'HKLM\\Software\\Microsoft\\Windows\\CurrentVersion\\Uninstall\\%s' "$1"; }
registryValue() {  # registryValue <key> <name>
  wine reg query "$1" /v "$2" </dev/null 2>/dev/null | tr -d '\r' |
    sed -n "s/^ *$2 *REG_[A-Z_]* *//p"
}
productCodeOf() { msiinfo export "$1" Property | tr -d '\r' | sed -n 's/^ProductCode\t//p'; }
# pathEntries <PATH>: its entries, one a line, without empty ones. Wine's
# Windows Installer leaves the ";" before an entry it removes (Windows
# removes it with the entry), so a PATH is compared by its entries.
pathEntries() { tr ';' '\n' <<<"$1" | sed '/^$/d'; }
contains() { grep -qF -- "$2" <<<"$1"; }
lacks() { ! grep -qF -- "$2" <<<"$1"; }
sameFiles() { diff -r "$1" "$2" >/dev/null; }
# logTo <file>: sets logOptions to the options that make msiexec log to
# <file>; none when Wine cannot name it (a run without a log still runs).
logOptions=()
logTo() {
  local windowsPath
  logOptions=()
  windowsPath=$(winepath -w "$1" 2>/dev/null) && [[ -n "${windowsPath}" ]] &&
    logOptions=(/l*v "${windowsPath}")
  return 0
}
# showLog <status> <log>: after a failed msiexec, what it printed and what
# its log says went wrong.
showLog() {
  (($1 == 0)) && return 0
  echo "-- msiexec failed with status $1; it printed: ${err}" >&2
  if [[ -s "$2" ]]; then
    tr -d '\r' <"$2" | grep -iE 'error|fail|return value 3' | tail -n 40 >&2
  else
    echo "-- msiexec wrote no log" >&2
  fi
}

hashMatches() {  # hashMatches <password> <hash>: the system's SHA-crypt gives the same hash
  python3 -W ignore::DeprecationWarning - "$1" "$2" <<'PY'
import crypt, sys
sys.exit(0 if crypt.crypt(sys.argv[1], sys.argv[2]) == sys.argv[2] else 1)
PY
}

installWindows='C:\Program Files\Korvane\Password Tool'
installDir=$(winepath -u "${installWindows}" 2>/dev/null)
installDir=${installDir%/}
korvaneDir=$(dirname "${installDir}")
programWindows="${installWindows}\\${programName}"
msiWindows=$(winepath -w "${msi}" 2>/dev/null)
productCode=$(productCodeOf "${msi}")

check "the installer names its ProductCode" test -n "${productCode}"
check "nothing is installed before" test ! -e "${korvaneDir}"
pathBefore=$(systemPath)
check "the system PATH is readable before" test -n "${pathBefore}"

echo "-- install: msiexec /i $(basename "${msi}") /qn"
logTo "${work}/install.log"
run msiexec /i "${msiWindows}" /qn "${logOptions[@]}"
check "install exits 0 (status ${status})" test "${status}" -eq 0
showLog "${status}" "${work}/install.log"
check "the program is installed" test -f "${installDir}/${programName}"
check "the manual is installed as text" grep -q "KorvanePassword - set or remove the password" "${installDir}/KorvanePassword.txt"
check "the copyright file is installed" grep -q "Korvane Software" "${installDir}/copyright.txt"
check "nothing else is installed" test "$(cd "${installDir}" && ls | sort | tr '\n' ' ')" = \
  "$(printf '%s\n' "${programName}" KorvanePassword.txt copyright.txt | sort | tr '\n' ' ')"

pathInstalled=$(systemPath)
check "the folder is on the system PATH" contains "${pathInstalled}" "${installWindows}"
check "the system PATH keeps what it held" contains "${pathInstalled}" "${pathBefore%;}"

key=$(uninstallKey "${productCode}")
check "Apps & features: the publisher" test "$(registryValue "${key}" Publisher)" = "Korvane Software"
check "Apps & features: the version" test "$(registryValue "${key}" DisplayVersion)" = "${version}"
check "Apps & features: the name" contains "$(registryValue "${key}" DisplayName)" "Korvane Password Tool"

headers=$(x86_64-w64-mingw32-objdump -p "${installDir}/${programName}")
for characteristic in HIGH_ENTROPY_VA DYNAMIC_BASE NX_COMPAT; do
  check "the installed program is marked ${characteristic}" grep -qw "${characteristic}" <<<"${headers}"
done
check "the installed program holds no build time" grep -q '^Time/Date.*1970$' <<<"${headers}"

run "${programWindows}" -Version
check "the installed program prints its version (status ${status})" \
  test "$(sed -n 1p <<<"${out}")" = "Korvane Password Tool ${version}"
# A program started now gets the system PATH from the registry.
run cmd /c "${programName%.exe} -Version"
check "the program is found through the system PATH" \
  test "$(sed -n 1p <<<"${out}")" = "Korvane Password Tool ${version}"

# A password set in the standard location, %ProgramData%\Korvane\Config.
run cmd /c 'echo %ProgramData%'
programData=$(winepath -u "${out}" 2>/dev/null)
configDir="${programData%/}/Korvane/Config"
check "ProgramData is known (${out})" test -n "${out}"
check "the configuration folder does not exist yet" test ! -e "${configDir}"
mkdir -p "${configDir}"
cat >"${configDir}/users.json" <<JSON
{
  "users": [
    { "userName": "alice", "UUID": "${aliceUuid}" }
  ]
}
JSON
printf '%s\n' "${password}" | wine "${programWindows}" alice >"${work}/out" 2>"${work}/err"
status=$?
check "the installed program sets a password (status ${status}: $(tr -d '\r' <"${work}/err"))" test "${status}" -eq 0
hash=$(python3 -c 'import json, sys; print(json.load(open(sys.argv[1]))[sys.argv[2]])' \
  "${configDir}/passwords.json" "${aliceUuid}" 2>/dev/null)
check "the password file holds the user's hash" hashMatches "${password}" "${hash}"
cp -a "${configDir}" "${work}/configuration"

# A later version: the same installer with its version raised by one and a
# ProductCode of its own, as scripts/package-windows.sh makes each version.
IFS=. read -r major minor patch <<<"${version}"
laterVersion="${major}.${minor}.$((patch + 1))"
laterMsi="${work}/later.msi"
laterCode=$(python3 -c 'import uuid; print("{" + str(uuid.uuid4()).upper() + "}")')
cp "${msi}" "${laterMsi}"
# The Upgrade table's versions are part of its key, which SQL cannot
# change: the table is exported, edited and imported whole.
msiinfo export "${msi}" Upgrade | sed "s/\t${version//./\\.}\t/\t${laterVersion}\t/" >"${work}/Upgrade.idt"
msibuild "${laterMsi}" -i "${work}/Upgrade.idt" \
  -q "UPDATE \`Property\` SET \`Value\` = '${laterVersion}' WHERE \`Property\` = 'ProductVersion'" \
  -q "UPDATE \`Property\` SET \`Value\` = '${laterCode}' WHERE \`Property\` = 'ProductCode'"
# A package of its own (its package code).
msibuild "${laterMsi}" -s "Korvane Password Tool" "Korvane Software" "x64;1033" "${laterCode}"
check "the later installer detects the installed version as older" \
  grep -qP "\\t${laterVersion}\\t.*WIX_UPGRADE_DETECTED" <(msiinfo export "${laterMsi}" Upgrade)
echo "-- a later version: msiexec /i later.msi /qn (${laterVersion})"
laterWindows=$(winepath -w "${laterMsi}" 2>/dev/null)
logTo "${work}/later.log"
run msiexec /i "${laterWindows}" /qn "${logOptions[@]}"
showLog "${status}" "${work}/later.log"
if ((status == 2)); then
  # Wine's msiexec has once failed here with status 2 (file not found) on
  # a loaded machine, and not again since: what it said is shown, and the
  # install is tried once more; a second failure fails the check. Any
  # other failure fails it at once.
  echo "-- the later installer (${laterWindows}) is tried once more" >&2
  sleep 2
  logTo "${work}/later-again.log"
  run msiexec /i "${laterWindows}" /qn "${logOptions[@]}"
  showLog "${status}" "${work}/later-again.log"
fi
check "the later version installs (status ${status})" test "${status}" -eq 0
check "the later version replaced the earlier one in Apps & features" \
  test -z "$(registryValue "${key}" DisplayVersion)"
check "Apps & features shows the later version" \
  test "$(registryValue "$(uninstallKey "${laterCode}")" DisplayVersion)" = "${laterVersion}"
check "the program is still installed" test -f "${installDir}/${programName}"
pathLater=$(systemPath)
check "the folder is on the system PATH once" \
  test "$(grep -oF -- "${installWindows}" <<<"${pathLater}" | wc -l)" -eq 1

echo "-- remove: msiexec /x later.msi /qn"
logTo "${work}/remove.log"
run msiexec /x "$(winepath -w "${laterMsi}" 2>/dev/null)" /qn "${logOptions[@]}"
check "removal exits 0 (status ${status})" test "${status}" -eq 0
showLog "${status}" "${work}/remove.log"
check "every installed file and folder is removed" test ! -e "${korvaneDir}"
pathAfter=$(systemPath)
check "the folder is off the system PATH" lacks "${pathAfter}" "${installWindows}"
check "the system PATH holds the entries it held before" \
  test "$(pathEntries "${pathAfter}")" = "$(pathEntries "${pathBefore}")"
check "Apps & features no longer shows the product" \
  test -z "$(registryValue "$(uninstallKey "${laterCode}")" DisplayVersion)"
check "the configuration folder and its password file are left as they were" \
  sameFiles "${work}/configuration" "${configDir}"
rm -rf "${programData%/}/Korvane"

echo "installer test: ${passed} passed, ${failed} failed"
((failed == 0))
