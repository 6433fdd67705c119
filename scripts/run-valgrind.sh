#!/usr/bin/env bash
# Runs the built program end to end under Valgrind (memcheck, full leak
# check) over a handful of cases: set, remove, a new password file, weak,
# empty and too long passwords, a missing user, malformed files, help and
# version. Fails when Valgrind reports any error or a run ends with another
# status than expected.
#
#   scripts/run-valgrind.sh [build directory]
#
# Without an argument a Debug build in build/valgrind is made (or brought
# up to date); a given directory must hold a built KorvanePassword.
set -euo pipefail
cd "$(dirname "$0")/.."

if [[ $# -ge 1 ]]; then
  build=$1
else
  build=build/valgrind
  cmake -S . -B "${build}" -G Ninja -DCMAKE_BUILD_TYPE=Debug -DKORVANE_BUILD_TESTS=OFF >/dev/null
  cmake --build "${build}" --target KorvanePassword -j "$(nproc)" >/dev/null
fi
program=$(realpath "${build}/setUserPassword/KorvanePassword")
[[ -x ${program} ]] || { echo "no program at ${program}"; exit 1; }

work=$(mktemp -d)
trap 'rm -rf "${work}"' EXIT
# Valgrind's own status for an error, distinct from the program's 0, 1 and 2.
valgrindError=99
failures=0
runs=0

uuidA=3f2504e0-4f89-41d3-9a0c-0305e82c3301
uuidB=6fa459ea-ee8a-4ca4-894e-db77e160355e

reset_files() {
  cat >"${work}/users.json" <<JSON
{"users": [{"userName": "alice", "UUID": "${uuidA}"}, {"userName": "bob", "UUID": "${uuidB}"}]}
JSON
  cat >"${work}/passwords.json" <<JSON
{"\$schema": "https://example.invalid/schema.json", "${uuidB}": "\$6\$salt\$old", "other": "kept"}
JSON
}

# check <name> <expected status> <stdin text or "-" for none> <arguments...>
check() {
  local name=$1 expected=$2 input=$3
  shift 3
  runs=$((runs + 1))
  local log="${work}/${name}.log"
  local status=0
  if [[ ${input} == - ]]; then
    valgrind --quiet --error-exitcode=${valgrindError} --leak-check=full \
      --log-file="${log}" "${program}" "$@" </dev/null >"${work}/out" 2>&1 || status=$?
  else
    printf '%s\n' "${input}" | valgrind --quiet --error-exitcode=${valgrindError} \
      --leak-check=full --log-file="${log}" "${program}" "$@" >"${work}/out" 2>&1 || status=$?
  fi
  if [[ ${status} -ne ${expected} ]]; then
    echo "FAIL ${name}: status ${status}, expected ${expected}"
    cat "${work}/out"
    cat "${log}"
    failures=$((failures + 1))
  elif [[ -s ${log} ]]; then
    echo "FAIL ${name}: Valgrind reported"
    cat "${log}"
    failures=$((failures + 1))
  else
    echo "ok   ${name} (status ${status})"
  fi
}

files=(-Users "${work}/users.json" -Passwords "${work}/passwords.json")
export XDG_CONFIG_DIRS=/nonexistent-korvane-base
strong='Vq7#tR2!mX9@kL4$wZ'

reset_files
check set 0 "${strong}" "${files[@]}" alice
check set-again 0 "${strong}x" "${files[@]}" alice
check remove 0 - "${files[@]}" -Remove bob
check remove-absent 0 - "${files[@]}" -Remove bob
rm "${work}/passwords.json"
check new-password-file 0 "${strong}" "${files[@]}" bob
reset_files
check weak 2 "password" "${files[@]}" alice
check empty 2 "" "${files[@]}" alice
check too-long 2 "$(head -c 5000 /dev/zero | tr '\0' 'a')" "${files[@]}" alice
check weak-allowed 0 "password" "${files[@]}" -DontRejectInsecurePasswords alice
check missing-user 1 "${strong}" "${files[@]}" carol
printf '{"users": [{"userName": "alice", "UUID": 12}]}' >"${work}/users.json"
check malformed-users 1 "${strong}" "${files[@]}" alice
reset_files
printf '{"a": "x", "b": [' >"${work}/passwords.json"
check malformed-passwords 1 "${strong}" "${files[@]}" alice
reset_files
check missing-users-file 1 "${strong}" -Users "${work}/none.json" alice
check config-dir 0 "${strong}" -ConfigDir "${work}" alice
check help 0 - -Help
check version 0 - -Version
check command-line-error 1 - -Bogus

echo "${runs} runs under Valgrind, ${failures} failed"
[[ ${failures} -eq 0 ]]
