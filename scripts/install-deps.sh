#!/usr/bin/env bash
# Installs the Debian packages the project builds, tests and benchmarks with.
# Idempotent: packages already present are not downloaded again, and nothing
# is fetched at all when everything is installed.
#
#   scripts/install-deps.sh            # Linux build, tests, benchmarks
#   scripts/install-deps.sh --windows  # also MinGW-w64 and Wine
set -euo pipefail

packages=(
  g++ cmake ninja-build pkg-config git
  dpkg-dev file        # Debian package: dependency list, stripping
  lintian              # Debian package: Debian's own checker
  devscripts           # Debian package: hardening-check of the packaged program
  man-db groff-base gzip  # manual page: compressed, checked with man and groff
  mount                # bind mounts in the container test (with util-linux's unshare)
  libfmt-dev libzxcvbn-dev
  googletest libgtest-dev libgmock-dev libbenchmark-dev
  libcrypt-dev         # test-only: cross-check of the SHA-crypt functions
  libssl-dev           # benchmark-only: reference digests
  rapidjson-dev        # benchmark-only: reference JSON reader and writer
  clang-16 libclang-rt-16-dev  # fuzz targets (libFuzzer)
  unicode-data python3 # combining-marks table generator
  python3-pexpect      # end-to-end tests on a pseudo-terminal
  whois                # mkpasswd, reference in the whole-run and scaling benchmarks
  apache2-utils        # htpasswd, reference in the scaling benchmark
  valgrind
  gcovr                # line and branch coverage of the asan build (coverage-report.sh)
  util-linux           # script(1)
  acl                  # setfacl in the tests: the password file keeps its access control list
  clang-format git     # the layout check of every source (FormatTest)
  clang-tidy-16        # the naming check of every source (NamingTest)
)

if [[ "${1:-}" == "--windows" ]]; then
  packages+=(g++-mingw-w64-x86-64-posix mingw-w64-tools wine wine64
    wixl msitools)     # the Windows installer: wixl builds it, msibuild adds to it
fi

missing=()
for p in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed'; then
    missing+=("$p")
  fi
done

if ((${#missing[@]} == 0)); then
  exit 0
fi

if [[ $(id -u) -ne 0 ]]; then
  echo "install-deps: missing packages: ${missing[*]}; run this script as root" >&2
  exit 1
fi

export DEBIAN_FRONTEND=noninteractive
apt-get update -qq
apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
