#!/usr/bin/env bash
# Installs what the build needs, builds the release configuration and runs
# the tool on the example installation in examples/installation.
#
#   scripts/try-example.sh            # set the password of user "alice"
#   scripts/try-example.sh -Remove bob
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/install-deps.sh
cmake --preset release >/dev/null
cmake --build --preset release --target KorvanePassword

if (($# == 0)); then set -- alice; fi
exec build/release/setUserPassword/KorvanePassword -ConfigDir examples/installation "$@"
