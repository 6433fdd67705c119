#!/usr/bin/env bash
# Builds the release configuration and the Debian package, then checks the
# package: its declared dependencies, its content, Debian's own checker
# (lintian: any error or warning fails), and that it installs with apt and
# runs. The package is removed again afterwards.
#
#   scripts/package.sh        # leaves build/release/korvane-password_*.deb
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/install-deps.sh
cmake --preset release >/dev/null
cmake --build --preset release --target KorvanePassword korvane_documentation
rm -f build/release/korvane-password_*.deb
(cd build/release && cpack -G DEB >/dev/null)
package=$(ls build/release/korvane-password_*_amd64.deb | head -n 1)
echo "package: ${package}"
dpkg-deb -I "${package}" | grep -E '^ (Package|Version|Section|Depends):'
content=$(dpkg-deb -c "${package}")
for file in ./usr/bin/KorvanePassword ./usr/share/man/man1/KorvanePassword.1.gz \
    ./usr/share/doc/korvane-password/copyright ./usr/share/doc/korvane-password/changelog.gz; do
  if ! grep -q " ${file}\$" <<<"${content}"; then
    echo "package.sh: ${file} is missing from the package" >&2
    exit 1
  fi
done

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
