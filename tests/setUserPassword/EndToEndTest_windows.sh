#!/usr/bin/env bash
# End-to-end runs of KorvanePassword with redirected input, on a temporary
# installation: set, every refusal of a redirected password, remove,
# command-line errors, exit statuses, the password file's content and the
# stored hash (verified with the system's crypt), printed paths and the
# search in the standard location.
#
#   tests/setUserPassword/EndToEndTest_windows.sh <program> [runner ...]
#
# With a runner (e.g. `wine`) the program is a Windows one: paths handed to
# it are converted with winepath, printed paths are expected in Windows form
# and the standard location is %ProgramData%\Korvane\Config. Without one the
# program runs natively (used to check this script against the Linux build)
# and the standard location comes from XDG_CONFIG_DIRS. The passwords used
# are classified alike by zxcvbn and by the test estimator
# (tests/strengthEstimator/). Exits non-zero when any check fails.
set -uo pipefail

program=$1
shift
runner=("$@")

work=$(mktemp -d "${TMPDIR:-/tmp}/korvane-e2e.XXXXXX")
trap 'rm -rf "${work}"' EXIT
install="${work}/installation"
mkdir -p "${install}"

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

# The program's view of a path, and the text it prints for it.
if ((${#runner[@]} > 0)); then
  programPath() { winepath -w "$1" 2>/dev/null; }
else
  programPath() { printf '%s\n' "$1"; }
fi
printedPath() { programPath "$1"; }

# run <stdin text> <arguments...>: sets status, out, err (line ends without "\r").
run() {
  local input=$1
  shift
  printf '%s' "${input}" | "${runner[@]}" "${program}" "$@" >"${work}/out" 2>"${work}/err"
  status=$?
  out=$(tr -d '\r' <"${work}/out")
  err=$(tr -d '\r' <"${work}/err")
}

# runFile <input file> <arguments...>: as run, with standard input from a file.
runFile() {
  local input=$1
  shift
  "${runner[@]}" "${program}" "$@" <"${input}" >"${work}/out" 2>"${work}/err"
  status=$?
  out=$(tr -d '\r' <"${work}/out")
  err=$(tr -d '\r' <"${work}/err")
}

# hashMatches <password> <hash>: the system's SHA-crypt gives the same hash.
hashMatches() {
  python3 -W ignore::DeprecationWarning - "$1" "$2" <<'PY'
import crypt, sys
sys.exit(0 if crypt.crypt(sys.argv[1], sys.argv[2]) == sys.argv[2] else 1)
PY
}

hashDiffers() { ! hashMatches "$@"; }

passwordFileValue() {  # passwordFileValue <member>: the member's value, or "<absent>"
  python3 - "${install}/passwords.json" "$1" <<'PY'
import json, sys
with open(sys.argv[1], encoding="utf-8") as f:
    pairs = json.load(f, object_pairs_hook=list)
values = [v for k, v in pairs if k == sys.argv[2]]
print(values[0] if values else "<absent>")
PY
}

passwordFileNames() {
  python3 - "${install}/passwords.json" <<'PY'
import json, sys
with open(sys.argv[1], encoding="utf-8") as f:
    print(" ".join(k for k, _ in json.load(f, object_pairs_hook=list)))
PY
}

cat >"${install}/users.json" <<'JSON'
{
  "users": [
    { "userName": "alice", "UUID": "3f2b8c1e-6d4a-4e8b-9a7c-1b2d3e4f5a6b" },
    { "userName": "bob", "UUID": "8c9d0e1f-2a3b-4c5d-8e6f-7a8b9c0d1e2f" }
  ]
}
JSON
configDir=$(programPath "${install}")
usersPrinted=$(printedPath "${install}/users.json")
passwordsPrinted=$(printedPath "${install}/passwords.json")
alice=3f2b8c1e-6d4a-4e8b-9a7c-1b2d3e4f5a6b
bob=8c9d0e1f-2a3b-4c5d-8e6f-7a8b9c0d1e2f
strong='Tangerine-Kettle-Orbit-47'

# Version and help.
run '' -Version
check "-Version exits 0" test "${status}" -eq 0
check "-Version banner" test "$(head -n1 <<<"${out}")" = "Korvane Password Tool 2.0.3"
run '' /?
check "/? exits 0" test "${status}" -eq 0
check "/? prints the usage" test "$(head -n1 <<<"${out}")" = "Usage: KorvanePassword.exe [options] <user name>"

# Command-line errors with redirected input: no usage text.
run ''
check "no user name exits 1" test "${status}" -eq 1
check "no user name message" test "${err}" = "COMMAND LINE ERROR: no user name specified"
run '' -users x alice
check "unknown option exits 1" test "${status}" -eq 1
check "unknown option message" test "${err}" = "COMMAND LINE ERROR: unknown option '-users'"

# A new password file.
run "${strong}"$'\n' -ConfigDir "${configDir}" alice
check "set exits 0" test "${status}" -eq 0
check "set names the user configuration file" \
  test "$(sed -n 1p <<<"${out}")" = "Using user configuration file \"${usersPrinted}\""
check "set announces the new password file" \
  test "$(sed -n 2p <<<"${out}")" = "Will create new password file at \"${passwordsPrinted}\""
check "set success line" test "$(tail -n1 <<<"${out}")" = "Password for user \"alice\" was updated."
check "set writes nothing on standard error" test -z "${err}"
check "new file: \$schema first, then alice" test "$(passwordFileNames)" = "\$schema ${alice}"
hash=$(passwordFileValue "${alice}")
check "hash is SHA-512-crypt" test "${hash:0:3}" = '$6$'
check "hash length 106" test "${#hash}" -eq 106
check "the stored hash verifies with the password" hashMatches "${strong}" "${hash}"
check "the stored hash fails with another password" hashDiffers "${strong}x" "${hash}"
check "the temporary file is gone" test "$(find "${install}" -name 'passwords.json.*' | wc -l)" -eq 0

# A second user, through explicit paths written with forward slashes.
usersSlashed=$(programPath "${install}/users.json" | tr '\\' '/')
run "${strong}x"$'\r\n' -Users "${usersSlashed}" -ConfigDir "${configDir}" bob
check "set bob exits 0" test "${status}" -eq 0
check "forward slashes print as the native separator" \
  test "$(sed -n 1p <<<"${out}")" = "Using user configuration file \"${usersPrinted}\""
check "existing password file is used" \
  test "$(sed -n 2p <<<"${out}")" = "Using password file \"${passwordsPrinted}\""
check "bob added after alice" test "$(passwordFileNames)" = "\$schema ${alice} ${bob}"
check "alice's hash kept" test "$(passwordFileValue "${alice}")" = "${hash}"
check "bob's hash verifies without the \"\\r\"" hashMatches "${strong}x" "$(passwordFileValue "${bob}")"

# Every refusal of a redirected password: status 2, "ERROR: " and the text on
# standard error, nothing on standard output after the file lines, nothing
# changed. In this order: empty, too long, NUL, weak; the first three also
# with -DontRejectInsecurePasswords.
before=$(cat "${install}/passwords.json")
tooWeak='password is too weak (use -DontRejectInsecurePasswords" to allow weak passwords'
long=$(head -c 5000 /dev/zero | tr '\0' 'k')
printf 'abc\0def\n' >"${work}/nul"
printf 'Tangerine-\0Kettle-Orbit-47\n' >"${work}/nul-strong"
{ head -c 4500 /dev/zero | tr '\0' 'k'; printf '\0\n'; } >"${work}/nul-after-4095"
printf '\0' >"${work}/nul-only"
refused() {  # refused <description> <message>: the last run was refused so
  check "$1 exits 2" test "${status}" -eq 2
  check "$1 message" test "${err}" = "ERROR: $2"
  check "$1 prints only the file lines" test "$(wc -l <<<"${out}")" -eq 2
}
for dont in "" -DontRejectInsecurePasswords; do
  label="refusal${dont:+ with ${dont}}"
  run '' ${dont} -ConfigDir "${configDir}" alice
  refused "${label}: empty input" "empty password"
  run $'\n'"${strong}"$'\n' ${dont} -ConfigDir "${configDir}" alice
  refused "${label}: empty first line" "empty password"
  run $'\r\n' ${dont} -ConfigDir "${configDir}" alice
  refused "${label}: empty first line ending in \\r\\n" "empty password"
  run "${long}"$'\n' ${dont} -ConfigDir "${configDir}" alice
  refused "${label}: 5000 bytes" "password is too long (at most 4095 bytes)"
  run "${long}" ${dont} -ConfigDir "${configDir}" alice
  refused "${label}: 5000 bytes without a line end" "password is too long (at most 4095 bytes)"
  runFile "${work}/nul-after-4095" ${dont} -ConfigDir "${configDir}" alice
  refused "${label}: too long before NUL" "password is too long (at most 4095 bytes)"
  runFile "${work}/nul" ${dont} -ConfigDir "${configDir}" alice
  refused "${label}: NUL" "password contains a NUL character"
  runFile "${work}/nul-strong" ${dont} -ConfigDir "${configDir}" alice
  refused "${label}: NUL in a strong password" "password contains a NUL character"
  runFile "${work}/nul-only" ${dont} -ConfigDir "${configDir}" alice
  refused "${label}: a NUL alone" "password contains a NUL character"
done
run $'password\n' -ConfigDir "${configDir}" alice
refused "weak password" "${tooWeak}"
run $'abc' -ConfigDir "${configDir}" alice
refused "weak password without a line end" "${tooWeak}"
check "refused passwords change nothing" test "$(cat "${install}/passwords.json")" = "${before}"
check "refused passwords leave no temporary file" \
  test "$(find "${install}" -name 'passwords.json.*' | wc -l)" -eq 0

# Exactly 4095 bytes is allowed (weak, so with the option).
run "$(head -c 4095 /dev/zero | tr '\0' 'k')"$'\n' -DontRejectInsecurePasswords -ConfigDir "${configDir}" bob
check "4095 bytes with -DontRejectInsecurePasswords exits 0" test "${status}" -eq 0
# (The system's crypt takes at most 512 bytes, so only the form is checked.)
longHash=$(passwordFileValue "${bob}")
check "4095 bytes: a new SHA-512-crypt hash" \
  test "${longHash:0:3}" = '$6$' -a "${#longHash}" -eq 106 -a "${longHash}" != "${hash}"

# A weak password with -DontRejectInsecurePasswords: stored, no question.
run $'password\n' -DontRejectInsecurePasswords -ConfigDir "${configDir}" bob
check "weak with -DontRejectInsecurePasswords exits 0" test "${status}" -eq 0
check "weak with -DontRejectInsecurePasswords asks nothing" \
  test "${out}" = "Using user configuration file \"${usersPrinted}\""$'\n'"Using password file \"${passwordsPrinted}\""$'\n'"Password for user \"bob\" was updated."
check "weak with -DontRejectInsecurePasswords: the hash verifies" \
  hashMatches password "$(passwordFileValue "${bob}")"
check "weak with -DontRejectInsecurePasswords: alice untouched" \
  test "$(passwordFileValue "${alice}")" = "${hash}"

# Unknown user and missing user configuration file: status 1.
run "${strong}"$'\n' -ConfigDir "${configDir}" mallory
check "unknown user exits 1" test "${status}" -eq 1
check "unknown user reports an error" test "${err:0:7}" = "ERROR: "
check "unknown user prints nothing after the file lines" test "$(wc -l <<<"${out}")" -eq 2
run "${strong}"$'\n' -Users "$(programPath "${work}/missing/users.json")" alice
check "missing -Users file exits 1" test "${status}" -eq 1

# Removal with redirected input asks nothing.
run '' -Remove -ConfigDir "${configDir}" alice
check "remove exits 0" test "${status}" -eq 0
check "remove success line" test "$(tail -n1 <<<"${out}")" = "Password for user \"alice\" was removed."
check "remove keeps \$schema and bob" test "$(passwordFileNames)" = "\$schema ${bob}"

# Standard input a character device that is not a console (NUL; Wine gives
# /dev/null that type): the program cannot prompt, says so and ends with
# status 1 instead of taking an empty line for an empty password and asking
# again for ever. Bounded in time and output size. (Natively /dev/null is no
# terminal and is read as an empty redirected password.)
if ((${#runner[@]} > 0)); then
  timeout 60 "${runner[@]}" "${program}" -ConfigDir "${configDir}" alice </dev/null \
    2>"${work}/err" | head -c 65536 >"${work}/out"
  status=${PIPESTATUS[0]}
  out=$(tr -d '\r' <"${work}/out")
  err=$(tr -d '\r' <"${work}/err")
  check "no console: exits 1" test "${status}" -eq 1
  check "no console: the error" test "${err}" = \
    "ERROR: cannot prompt for input: standard input is a character device without a usable console"
  check "no console: no endless prompting" test "$(wc -l <<<"${out}")" -eq 4
fi

# The standard location: %ProgramData%\Korvane\Config on Windows, the
# XDG_CONFIG_DIRS entries elsewhere. Errors print every candidate path, with
# "\" on Windows also for a -ConfigDir written with "/".
if ((${#runner[@]} > 0)); then
  standardBase=$("${runner[@]}" cmd /c 'echo %ProgramData%' </dev/null 2>/dev/null | tr -d '\r')
  standardDir=$(winepath -u "${standardBase}" 2>/dev/null)
  standardDir=${standardDir%/}
  sep='\'
  standardPrinted="${standardBase}\\Korvane\\Config"
else
  standardDir="${work}/xdg"
  export XDG_CONFIG_DIRS="${standardDir}"
  sep=/
  standardPrinted="${standardDir}/Korvane/Config"
fi
check "the standard location is known (${standardBase:-${standardDir}})" test -n "${standardDir}"
emptyDir="${work}/empty"
mkdir -p "${emptyDir}"
emptySlashed=$(programPath "${emptyDir}" | tr '\\' '/')
emptyPrinted=$(printedPath "${emptyDir}/users.json")
run "${strong}"$'\n' -ConfigDir "${emptySlashed}" alice
check "no users.json anywhere exits 1" test "${status}" -eq 1
check "no users.json anywhere lists every place looked at" \
  test "${err}" = "ERROR: could not find user configuration file \"users.json\" in any of the following locations:"$'\n'"- ${emptyPrinted}"$'\n'"- ${standardPrinted}${sep}users.json"
check "no users.json anywhere prints nothing on standard output" test -z "${out}"

standardConfig="${standardDir}/Korvane/Config"
if [[ -n "${standardDir}" && ! -e "${standardConfig}" ]]; then
  mkdir -p "${standardConfig}"
  cp "${install}/users.json" "${standardConfig}/users.json"
  run "${strong}"$'\n' alice
  check "standard location: set exits 0" test "${status}" -eq 0
  check "standard location: users.json found there" \
    test "$(sed -n 1p <<<"${out}")" = "Using user configuration file \"${standardPrinted}${sep}users.json\""
  check "standard location: passwords.json created there" \
    test "$(sed -n 2p <<<"${out}")" = "Will create new password file at \"${standardPrinted}${sep}passwords.json\""
  check "standard location: the hash verifies" \
    hashMatches "${strong}" "$(python3 -c 'import json,sys; print(json.load(open(sys.argv[1]))[sys.argv[2]])' "${standardConfig}/passwords.json" "${alice}")"
  rm -rf "${standardDir}/Korvane"
else
  check "standard location ${standardConfig} is free for the test" false
fi

total=$((passed + failed))
echo "end-to-end: ${passed}/${total} checks passed"
((failed == 0))
