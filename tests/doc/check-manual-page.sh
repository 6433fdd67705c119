#!/usr/bin/env bash
# Checks the manual page KorvanePassword(1).
#
#   check-manual-page.sh render <page> <compressed page>
#       man and groff render both forms without a single warning (groff
#       -ww, and man --warnings as Debian's lintian runs it).
#   check-manual-page.sh program <page> <program> <changelog> <version>
#       the page agrees with the program: every option of its usage text,
#       the version banner, the texts of refused redirected passwords; and
#       the changelog's newest entry is this version.
set -euo pipefail

fail() {
  echo "check-manual-page: $*" >&2
  exit 1
}

# Renders `page` as plain text on very long lines, whitespace collapsed, so
# that texts can be looked for whatever the line breaks.
plainText() {
  groff -man -Tascii -rLL=1000n -P-cbou "$1" 2>/dev/null | tr -s ' \n' '  '
}

render() {
  local page=$1 compressed=$2 warnings
  [[ -s "${page}" && -s "${compressed}" ]] || fail "missing ${page} or ${compressed}"
  warnings=$(groff -ww -man -Tutf8 -z "${page}" 2>&1) || fail "groff failed: ${warnings}"
  [[ -z "${warnings}" ]] || fail "groff -ww warns:"$'\n'"${warnings}"
  for form in "${page}" "${compressed}"; do
    for width in 80 60; do
      warnings=$(LC_ALL=C.UTF-8 MANWIDTH=${width} man --warnings -E UTF-8 -l -Tutf8 -Z \
        "${form}" 2>&1 >/dev/null) || fail "man -l ${form} failed: ${warnings}"
      [[ -z "${warnings}" ]] || fail "man --warnings (width ${width}) warns on ${form}:"$'\n'"${warnings}"
    done
  done
  zcat "${compressed}" | cmp -s - "${page}" || fail "${compressed} is not ${page} compressed"
  echo "renders without warnings: ${page}, ${compressed}"
}

program() {
  local page=$1 program=$2 changelog=$3 version=$4 text usage option banner
  text=$(plainText "${page}")

  # Every option the usage text names.
  usage=$("${program}" -Help)
  local count=0
  while read -r option; do
    [[ "${text}" == *"${option}"* ]] || fail "the page does not name the option ${option}"
    count=$((count + 1))
  done < <(grep -oE '^  (-[A-Za-z]+|/\?)(, /\?)?' <<<"${usage}" | tr ',' '\n' | tr -d ' ')
  ((count >= 8)) || fail "found only ${count} options in the usage text"

  # The version, in the footer and in the changelog.
  banner=$("${program}" -Version | head -n 1)
  [[ "${banner}" == "Korvane Password Tool ${version}" ]] || fail "program says ${banner}"
  head -n 1 "${page}" | grep -qF "\"${banner}\"" || fail "the page's title line is not for ${banner}"
  head -n 1 "${changelog}" | grep -qE "^korvane-password \\(${version//./\\.}\\) " ||
    fail "the changelog's newest entry is not ${version}"

  # The texts of refused redirected passwords, as the program prints them.
  local work
  work=$(mktemp -d)
  trap 'rm -rf "${work}"' RETURN
  printf '{"users": [{"userName": "alice", "UUID": "3f2b8c1e-6d4a-4e8b-9a7c-1b2d3e4f5a6b"}]}' \
    >"${work}/users.json"
  local inputs=($'\n' "$(head -c 5000 /dev/zero | tr '\0' 'k')"$'\n' 'password'$'\n')
  local input error
  for input in "${inputs[@]}" NUL; do
    if [[ "${input}" == NUL ]]; then
      error=$(printf 'Qx7-vortex-MARBLE-quill-93-zephyr\0abc\n' |
        XDG_CONFIG_DIRS=/nonexistent "${program}" -ConfigDir "${work}" alice 2>&1 >/dev/null) || true
    else
      error=$(printf '%s' "${input}" |
        XDG_CONFIG_DIRS=/nonexistent "${program}" -ConfigDir "${work}" alice 2>&1 >/dev/null) || true
    fi
    [[ "${error}" == "ERROR: "* ]] || fail "unexpected program output: ${error}"
    [[ "${text}" == *"${error}"* ]] || fail "the page does not quote: ${error}"
  done
  [[ ! -e "${work}/passwords.json" ]] || fail "a refused password was stored"
  echo "the page names ${count} options, ${banner}, and the refusal texts"
}

mode=$1
shift
"${mode}" "$@"
