#!/usr/bin/env bash
# End-to-end runs of KorvanePassword with redirected input, on a temporary
# installation: set, every refusal of a redirected password, remove,
# command-line errors, exit statuses, the password file's content and the
# stored hash (verified with the system's crypt), printed paths, the search
# in the standard location, user names and folders in several scripts,
# eight runs at once on one password file, and, on Windows, a password file
# that another program holds open.
#
#   tests/setUserPassword/EndToEndTest_windows.sh <program> [runner ...]
#
# KORVANE_FILE_HOLDER names the FileHolder.exe test program (built beside
# this script's tests); with a runner it is required, for the runs against
# a password file held open.
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
# The version number the build's CMake project declares.
version=$(sed -n 's/^project(KorvanePassword VERSION \([0-9.]*\).*/\1/p' \
  "$(dirname "$0")/../../CMakeLists.txt")
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
check "-Version banner" test "$(head -n1 <<<"${out}")" = "Korvane Password Tool ${version}"
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

# User names in several scripts, in a folder of ASCII letters. Each name
# selects its own entry: "Łukasz" never sets "Lukasz" (a code page without
# "Ł" would make one of the other), and the names print with their real
# characters, as UTF-8 bytes here where the output is redirected.
names="${work}/names"
mkdir -p "${names}"
cat >"${names}/users.json" <<'JSON'
{
  "users": [
    { "userName": "Jürgen", "UUID": "a1000000-0000-4000-8000-000000000001" },
    { "userName": "Lukasz", "UUID": "a1000000-0000-4000-8000-000000000002" },
    { "userName": "Łukasz", "UUID": "a1000000-0000-4000-8000-000000000003" },
    { "userName": "山田", "UUID": "a1000000-0000-4000-8000-000000000004" }
  ]
}
JSON
valueIn() {  # valueIn <password file> <uuid>: the member's value
  python3 - "$1" "$2" <<'PY'
import json, sys
try:
    with open(sys.argv[1], encoding="utf-8") as f:
        print(json.load(f).get(sys.argv[2], "<absent>"))
except OSError:
    print("<no file>")
PY
}
uuidOf() {
  case $1 in
    Jürgen) echo a1000000-0000-4000-8000-000000000001 ;;
    Lukasz) echo a1000000-0000-4000-8000-000000000002 ;;
    Łukasz) echo a1000000-0000-4000-8000-000000000003 ;;
    山田) echo a1000000-0000-4000-8000-000000000004 ;;
  esac
}
namesDir=$(programPath "${names}")
namesUsersPrinted=$(printedPath "${names}/users.json")
first=1
for name in Łukasz Jürgen 山田 Lukasz; do
  password="Tangerine-Kettle-Orbit-47-${name}"
  run "${password}"$'\n' -ConfigDir "${namesDir}" "${name}"
  check "${name}: exits 0" test "${status}" -eq 0
  check "${name}: nothing on standard error (${err})" test -z "${err}"
  check "${name}: the success line with the name's real characters" \
    test "$(tail -n1 <<<"${out}")" = "Password for user \"${name}\" was updated."
  check "${name}: its own entry verifies" \
    hashMatches "${password}" "$(valueIn "${names}/passwords.json" "$(uuidOf "${name}")")"
  if ((first)); then
    check "Łukasz never sets Lukasz" test "$(valueIn "${names}/passwords.json" "$(uuidOf Lukasz)")" = "<absent>"
  fi
  first=0
done
for name in Łukasz Jürgen 山田; do
  check "${name}: still verifies after the other names were set" \
    hashMatches "Tangerine-Kettle-Orbit-47-${name}" "$(valueIn "${names}/passwords.json" "$(uuidOf "${name}")")"
done
for name in Müller 山本 Łukasz2 Łukas; do
  run "${strong}"$'\n' -ConfigDir "${namesDir}" "${name}"
  check "unknown ${name}: exits 1" test "${status}" -eq 1
  check "unknown ${name}: reported with its real characters" \
    test "${err}" = "ERROR: the user \"${name}\" was not found in the file \"${namesUsersPrinted}\""
done

# Folders and files in several scripts, through -ConfigDir, -Users and
# -Passwords: found, printed with their real characters, and a new password
# file created at exactly the path given.
scripts="${work}/配置-Łódź"
mkdir -p "${scripts}"
cp "${names}/users.json" "${scripts}/users.json"
run "${strong}"$'\n' -ConfigDir "$(programPath "${scripts}")" Łukasz
check "-ConfigDir in several scripts: exits 0 (${err})" test "${status}" -eq 0
check "-ConfigDir in several scripts: both file lines name the folder as it is" \
  test "${out}" = "Using user configuration file \"$(printedPath "${scripts}/users.json")\""$'\n'"Will create new password file at \"$(printedPath "${scripts}/passwords.json")\""$'\n'"Password for user \"Łukasz\" was updated."
check "-ConfigDir in several scripts: the password file is created there" \
  hashMatches "${strong}" "$(valueIn "${scripts}/passwords.json" "$(uuidOf Łukasz)")"

# -Users and -Passwords naming files in folders of several scripts; the new
# password file is created at exactly that path.
mkdir -p "${scripts}/użytkownicy-利用者" "${scripts}/hasła-パスワード"
cp "${scripts}/users.json" "${scripts}/użytkownicy-利用者/użytkownicy.json"
explicitUsers="${scripts}/użytkownicy-利用者/użytkownicy.json"
explicitPasswords="${scripts}/hasła-パスワード/hasła.json"
run "${strong}"$'\n' -Users "$(programPath "${explicitUsers}")" -Passwords "$(programPath "${explicitPasswords}")" 山田
check "-Users and -Passwords in several scripts: exits 0 (${err})" test "${status}" -eq 0
check "-Users and -Passwords in several scripts: both paths printed as given" \
  test "${out}" = "Using user configuration file \"$(printedPath "${explicitUsers}")\""$'\n'"Using password file \"$(printedPath "${explicitPasswords}")\""$'\n'"Password for user \"山田\" was updated."
check "-Passwords in several scripts: the file is created there" \
  hashMatches "${strong}" "$(valueIn "${explicitPasswords}" "$(uuidOf 山田)")"
run "${strong}"$'\n' -ConfigDir "$(programPath "${scripts}/użytkownicy-利用者")" 山田
check "-ConfigDir without users.json: the candidate path in the error, with its real characters" \
  test "$(sed -n 2p <<<"${err}")" = "- $(printedPath "${scripts}/użytkownicy-利用者/users.json")"

# Eight runs at once, each setting another user's password in one password
# file (two administrators, or a provisioning script), ten times over:
# every run exits 0, every password verifies, no temporary file is left.
concurrent="${work}/concurrent"
mkdir -p "${concurrent}"
python3 - "${concurrent}/users.json" <<'PY'
import json, sys
users = [{"userName": f"user{i}", "UUID": f"c0000000-0000-4000-8000-00000000000{i}"} for i in range(8)]
with open(sys.argv[1], "w", encoding="utf-8") as f:
    json.dump({"users": users}, f)
PY
concurrentDir=$(programPath "${concurrent}")
concurrentFailures=0
concurrentStart=$(date +%s.%N)
for round in $(seq 1 10); do
  pids=()
  for i in $(seq 0 7); do
    printf '%s\n' "Tangerine-Kettle-Orbit-${round}-${i}" |
      "${runner[@]}" "${program}" -ConfigDir "${concurrentDir}" "user${i}" \
        >"${work}/concurrent-out.${i}" 2>"${work}/concurrent-err.${i}" &
    pids+=($!)
  done
  for i in $(seq 0 7); do
    if ! wait "${pids[${i}]}"; then
      concurrentFailures=$((concurrentFailures + 1))
      echo "concurrent round ${round}, user${i}: $(tr -d '\r' <"${work}/concurrent-err.${i}")" >&2
    fi
  done
  verified=$(python3 -W ignore::DeprecationWarning - "${concurrent}/passwords.json" "${round}" <<'PY'
import crypt, json, sys, warnings
with open(sys.argv[1], encoding="utf-8") as f:
    stored = json.load(f)
good = 0
for i in range(8):
    value = stored.get(f"c0000000-0000-4000-8000-00000000000{i}", "")
    if value and crypt.crypt(f"Tangerine-Kettle-Orbit-{sys.argv[2]}-{i}", value) == value:
        good += 1
print(good)
PY
  )
  check "concurrent round ${round}: every password verifies (${verified}/8)" test "${verified}" = 8
  check "concurrent round ${round}: no temporary file is left" \
    test "$(find "${concurrent}" -name 'passwords.json.*' | wc -l)" -eq 0
done
concurrentSeconds=$(python3 -c "import sys; print(f'{float(sys.argv[2]) - float(sys.argv[1]):.1f}')" "${concurrentStart}" "$(date +%s.%N)")
check "concurrent: every one of 80 runs exits 0 (${concurrentFailures} failed)" test "${concurrentFailures}" -eq 0
echo "concurrent runs: 80 (8 at once, 10 rounds), ${concurrentFailures} failed, ${concurrentSeconds} s"

# Another program holds the password file open without delete sharing
# (Windows only; POSIX renames do not care). For two seconds: the run waits
# and succeeds. For longer than the run waits (about ten seconds): the
# "rename" error, status 1, the old file intact.
if ((${#runner[@]} > 0)); then
  holder=${KORVANE_FILE_HOLDER:-}
  check "the FileHolder test program is given (KORVANE_FILE_HOLDER)" test -f "${holder}"
  held="${work}/held"
  mkdir -p "${held}"
  cp "${install}/users.json" "${held}/users.json"
  heldDir=$(programPath "${held}")
  heldFile=$(programPath "${held}/passwords.json")
  run "${strong}"$'\n' -ConfigDir "${heldDir}" alice
  check "held: the password file exists" test "${status}" -eq 0
  # startHolder <milliseconds>: the holder in the background, once it holds.
  startHolder() {
    : >"${work}/holder-out"
    "${runner[@]}" "${holder}" "${heldFile}" "$1" >"${work}/holder-out" 2>&1 </dev/null &
    holderPid=$!
    for _ in $(seq 1 600); do
      grep -q held "${work}/holder-out" && return 0
      sleep 0.1
    done
    return 1
  }
  if [[ -f "${holder}" ]]; then
    before=$(cat "${held}/passwords.json")
    check "held 2 s: the holder holds the file" startHolder 2000
    started=$(date +%s.%N)
    run "${strong}y"$'\n' -ConfigDir "${heldDir}" bob
    finished=$(date +%s.%N)
    releasedFirst=$(grep -c released "${work}/holder-out")
    wait "${holderPid}"
    check "held 2 s: the run waits and exits 0 (${err})" test "${status}" -eq 0
    check "held 2 s: the run ended only after the holder let go" test "${releasedFirst}" -eq 1
    check "held 2 s: bob's password verifies" hashMatches "${strong}y" "$(valueIn "${held}/passwords.json" "${bob}")"
    check "held 2 s: no temporary file is left" \
      test "$(find "${held}" -name 'passwords.json.*' | wc -l)" -eq 0
    echo "held 2 s: the run took $(python3 -c "import sys; print(f'{float(sys.argv[2]) - float(sys.argv[1]):.1f}')" "${started}" "${finished}") s"

    before=$(cat "${held}/passwords.json")
    check "held 20 s: the holder holds the file" startHolder 20000
    started=$(date +%s.%N)
    run "${strong}z"$'\n' -ConfigDir "${heldDir}" bob
    finished=$(date +%s.%N)
    elapsed=$(python3 -c "import sys; print(int(float(sys.argv[2]) - float(sys.argv[1])))" "${started}" "${finished}")
    stillHeld=$(grep -c released "${work}/holder-out")
    wait "${holderPid}"
    check "held 20 s: exits 1" test "${status}" -eq 1
    check "held 20 s: the rename error names both files (${err})" \
      test "${err:0:33}" = "ERROR: filesystem error: rename: " -a "${err%"[${heldFile}]"}" != "${err}"
    check "held 20 s: the run waited about ten seconds before it failed (${elapsed} s)" \
      test "${elapsed}" -ge 9 -a "${elapsed}" -le 18
    check "held 20 s: the holder still held the file when the run ended" test "${stillHeld}" -eq 0
    check "held 20 s: the password file is intact" test "$(cat "${held}/passwords.json")" = "${before}"
  fi
fi

total=$((passed + failed))
echo "end-to-end: ${passed}/${total} checks passed"
((failed == 0))
