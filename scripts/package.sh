#!/usr/bin/env bash
# Builds the release configuration and the Debian package, then checks the
# package: its declared dependencies, its content, and that it installs
# with apt and runs. The package is removed again afterwards.
#
#   scripts/package.sh        # leaves build/release/korvane-password_*.deb
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/install-deps.sh
cmake --preset release >/dev/null
cmake --build --preset release --target KorvanePassword
(cd build/release && cpack -G DEB >/dev/null)
package=$(ls build/release/korvane-password_*_amd64.deb | head -n 1)
echo "package: ${package}"
dpkg-deb -I "${package}" | grep -E '^ (Package|Version|Depends):'
dpkg-deb -c "${package}" | grep -q './usr/bin/KorvanePassword$'

if [[ $(id -u) -eq 0 ]]; then
  export DEBIAN_FRONTEND=noninteractive
  apt-get install -y -qq "./${package}" >/dev/null
  /usr/bin/KorvanePassword -Version | head -n 1 | grep -q '^Korvane Password Tool 2.0.3$'
  apt-get remove -y -qq korvane-password >/dev/null
  echo "package installs and runs"
fi
