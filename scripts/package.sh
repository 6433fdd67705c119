#!/usr/bin/env bash
# Builds the release configuration and the Debian package, then checks the
# package: its declared dependencies, its content, the hardening of the
# packaged program (hardening-check: any "no" fails), Debian's own checker
# (lintian: any error or warning fails), and that it installs with apt and
# runs. The package is removed again afterwards.
#
# The package is reproducible: every date in it is the commit's
# (SOURCE_DATE_EPOCH, taken from the last commit when unset), every file
# belongs to root (0:0), and the build paths appear nowhere in it; two builds
# of one commit give the same bytes (scripts/check-reproducible.sh).
#
#   scripts/package.sh               # leaves build/release/korvane-password_*.deb
#   scripts/package.sh --build-only  # builds the package and checks nothing
set -euo pipefail
cd "$(dirname "$0")/.."

buildOnly=false
if [[ "${1:-}" == "--build-only" ]]; then
  buildOnly=true
elif (($# > 0)); then
  echo "usage: scripts/package.sh [--build-only]" >&2
  exit 2
fi

if [[ -z "${SOURCE_DATE_EPOCH:-}" ]]; then
  SOURCE_DATE_EPOCH=$(git log -1 --format=%ct)
fi
export SOURCE_DATE_EPOCH

bash scripts/install-deps.sh
cmake --preset release >/dev/null
cmake --build --preset release --target KorvanePassword korvane_documentation
rm -f build/release/korvane-password_*.deb
(cd build/release && cpack -G DEB >/dev/null)
package=$(ls build/release/korvane-password_*_amd64.deb | head -n 1)
echo "package: ${package}"
if ${buildOnly}; then
  exit 0
fi
dpkg-deb -I "${package}" | grep -E '^ (Package|Version|Section|Depends):'
content=$(dpkg-deb -c "${package}")
for file in ./usr/bin/KorvanePassword ./usr/share/man/man1/KorvanePassword.1.gz \
    ./usr/share/doc/korvane-password/copyright ./usr/share/doc/korvane-password/changelog.gz; do
  if ! grep -q " ${file}\$" <<<"${content}"; then
    echo "package.sh: ${file} is missing from the package" >&2
    exit 1
  fi
done

# The packaged (stripped) program: hardening-check must report "yes" for
# each feature (position-independent executable, stack protector, fortified
# functions, read-only relocations, immediate binding, control-flow
# protection); a "no" fails.
unpacked=$(mktemp -d "${TMPDIR:-/tmp}/korvane-package.XXXXXX")
trap 'rm -rf "${unpacked}"' EXIT
dpkg-deb -x "${package}" "${unpacked}"
if ! command -v hardening-check >/dev/null; then
  echo "package.sh: hardening-check (package devscripts) is missing" >&2
  exit 1
fi
hardening=$(hardening-check "${unpacked}/usr/bin/KorvanePassword" 2>&1) || true
sed "s|${unpacked}|(package)|" <<<"${hardening}"
# A report without its first line is no report: the check itself failed.
if ! grep -q '^ Position Independent Executable: yes' <<<"${hardening}"; then
  echo "package.sh: hardening-check gave no usable report" >&2
  exit 1
fi
missing=$(grep -E '^ [^:]+: no\b' <<<"${hardening}" || true)

# Control-flow protection is marked in a program (the IBT and shadow-stack
# property) only when every linked object carries it. The start files and
# libc_nonshared.a of Debian 12's C library (package libc6-dev) carry none,
# so no program linked there is marked, whatever its flags. Where the C
# library's Scrt1.o is unmarked, the program is linked again with the
# linker's report of unmarked objects instead: every object of the program
# and of the libraries linked into it (libstdc++, libgcc) must carry the
# property, and only files of libc6-dev may lack it.
if grep -q '^ Control flow integrity: no' <<<"${missing}"; then
  startFile=$(realpath "$(c++ -print-file-name=Scrt1.o)")
  if readelf -n "${startFile}" | grep -q 'x86 feature: IBT, SHSTK'; then
    echo "package.sh: the program is not marked for control-flow protection, though the C library is" >&2
    exit 1
  fi
  link=$(ninja -C build/release -t commands setUserPassword/KorvanePassword | tail -n 1)
  link=${link/ -o setUserPassword\/KorvanePassword / -Wl,-z,cet-report=warning -o ${unpacked}/relinked }
  if [[ "${link}" != *cet-report* ]]; then
    echo "package.sh: the program's link command was not found" >&2
    exit 1
  fi
  report=$(cd build/release && eval "${link}" 2>&1)
  unmarked=$(sed -n 's/^[^ ]*: \(.*\): warning: missing .*$/\1/p' <<<"${report}" |
    sed 's/(.*)$//' | sort -u)
  if [[ -z "${unmarked}" ]] || grep -v 'missing .*propert' <<<"${report}" | grep -q .; then
    echo "package.sh: the linker's report of unmarked objects is not as expected:" >&2
    echo "${report}" >&2
    exit 1
  fi
  foreign=""
  while IFS= read -r file; do
    if ! dpkg -S "$(realpath "build/release/${file}" 2>/dev/null || realpath "${file}")" 2>/dev/null |
      grep -q '^libc6-dev:'; then
      foreign+=" ${file}"
    fi
  done <<<"${unmarked}"
  if [[ -n "${foreign}" ]]; then
    echo "package.sh: objects without control-flow protection:${foreign}" >&2
    exit 1
  fi
  echo "control-flow protection: every object is marked but the C library's own:" $(xargs -n1 basename <<<"${unmarked}")
  missing=$(grep -v '^ Control flow integrity: no' <<<"${missing}" || true)
fi
# Stack clash protection: hardening-check recognises only the probing loop
# of very large frames and says "unknown" otherwise. The program's frames of
# a page (4 KiB) or more are found in its code instead: each must be
# allocated a page at a time, every page touched ("sub rsp,0x1000" and
# "or QWORD PTR [rsp],0x0") before the next, as -fstack-clash-protection
# makes them.
if grep -q '^ Stack clash protection: unknown' <<<"${hardening}"; then
  frames=$(objdump -d -M intel --no-show-raw-insn "${unpacked}/usr/bin/KorvanePassword" | awk '
    pending { if ($0 ~ /or +QWORD PTR \[rsp\],0x0$/) probed++; else unprobed++; pending = 0 }
    match($0, /sub +rsp,0x[0-9a-f]+$/) {
      hex = substr($0, RSTART); sub(/.*0x/, "", hex); size = 0
      for (i = 1; i <= length(hex); i++) size = size * 16 + index("0123456789abcdef", substr(hex, i, 1)) - 1
      # Sizes above 2^31 are negative immediates (sub rsp,-128 frees).
      if (length(hex) <= 8 && size >= 4096) pending = 1
    }
    END { print probed + 0, unprobed + 0 }')
  read -r probed unprobed <<<"${frames}"
  if ((unprobed > 0)); then
    echo "package.sh: ${unprobed} stack allocations of a page or more are not probed (no stack clash protection)" >&2
    exit 1
  fi
  echo "stack clash protection: every allocation of a page or more is probed (${probed} probed pages)"
fi

if [[ -n "${missing}" ]]; then
  echo "package.sh: hardening-check reports a missing protection:" >&2
  echo "${missing}" >&2
  exit 1
fi
echo "hardening-check: no protection missing (control-flow protection and stack clash protection as shown)"

# Debian's checker: any error or warning fails; informational tags are
# shown but allowed.
lintianStatus=0
lintianOutput=$(lintian --fail-on error,warning --display-info "${package}" 2>&1) ||
  lintianStatus=$?
grep -v '^running with root privileges is not recommended!$' <<<"${lintianOutput}" || true
if ((lintianStatus != 0)); then
  echo "package.sh: lintian reports errors or warnings (status ${lintianStatus})" >&2
  exit 1
fi
echo "lintian: no errors, no warnings"

if [[ $(id -u) -eq 0 ]]; then
  export DEBIAN_FRONTEND=noninteractive
  apt-get install -y -qq "./${package}" >/dev/null
  # The number the build's CMake project declares.
  version=$(sed -n 's/^CMAKE_PROJECT_VERSION:STATIC=//p' build/release/CMakeCache.txt)
  /usr/bin/KorvanePassword -Version | head -n 1 | grep -qx "Korvane Password Tool ${version}"
  apt-get remove -y -qq korvane-password >/dev/null
  echo "package installs and runs"
fi
