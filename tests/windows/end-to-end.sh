#!/usr/bin/env bash
# End-to-end runs of KorvanePassword with redirected input, on a temporary
# installation: set, reject, remove, command-line errors, exit statuses and
# the password file's content.
#
#   tests/windows/end-to-end.sh <program> [runner ...]
#
# With a runner (e.g. `wine`) the program is a Windows one: paths handed to
# it are converted with winepath and printed paths are expected in Windows
# form. Without one the program runs natively (used to check this script
# against the Linux build). Exits non-zero when any check fails.
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

# Weak, empty and too long redirected passwords: status 2, nothing changes.
before=$(cat "${install}/passwords.json")
run $'password\n' -ConfigDir "${configDir}" alice
check "weak password exits 2" test "${status}" -eq 2
check "weak password reports an error" test "${err:0:7}" = "ERROR: "
run '' -ConfigDir "${configDir}" alice
check "empty input exits 2" test "${status}" -eq 2
run "$(head -c 5000 /dev/zero | tr '\0' 'k')"$'\n' -ConfigDir "${configDir}" alice
check "too long password exits 2" test "${status}" -eq 2
check "too long password message" \
  test "${err}" = "ERROR: password is too long (at most 4095 bytes)"
check "rejected passwords change nothing" test "$(cat "${install}/passwords.json")" = "${before}"

# Unknown user and missing user configuration file: status 1.
run "${strong}"$'\n' -ConfigDir "${configDir}" mallory
check "unknown user exits 1" test "${status}" -eq 1
check "unknown user reports an error" test "${err:0:7}" = "ERROR: "
run "${strong}"$'\n' -Users "$(programPath "${work}/missing/users.json")" alice
check "missing -Users file exits 1" test "${status}" -eq 1

# Removal with redirected input asks nothing.
run '' -Remove -ConfigDir "${configDir}" alice
check "remove exits 0" test "${status}" -eq 0
check "remove success line" test "$(tail -n1 <<<"${out}")" = "Password for user \"alice\" was removed."
check "remove keeps \$schema and bob" test "$(passwordFileNames)" = "\$schema ${bob}"

total=$((passed + failed))
echo "end-to-end: ${passed}/${total} checks passed"
((failed == 0))
