#!/usr/bin/env bash
# Checks the one naming rule for constants and enumerators: camelBack, with
# no "k" prefix (`minimumPasswordEntropy`, `Step::proceed`, `keys::home`).
# .clang-tidy states the case; a "k" prefix is camelBack too as far as
# clang-tidy can tell, so this check looks for it. Names of other libraries
# (`benchmark::kMillisecond`) and text inside string literals do not count.
#
#   scripts/check-constant-names.sh [source folder]
# Prints every offending line and exits non-zero when there is one.
set -euo pipefail
root=${1:-$(dirname "$0")/..}
cd "${root}"

find setUserPassword security lineEdit utils tests bench \
    -type f \( -name '*.h' -o -name '*.cpp' -o -name '*.inc' -o -name '*.in' \) -print0 |
  xargs -0 perl -ne '
    s{"(?:[^"\\]|\\.)*"}{""}g;    # string literals
    s{\x27(?:[^\x27\\]|\\.)*\x27}{\x27\x27}g;  # character literals
    if (/(?<!::)\bk[A-Z][A-Za-z0-9_]*\b/) { print "$ARGV:$.: $_"; $found = 1 }
    close ARGV if eof;             # line numbers per file
    END { exit($found ? 1 : 0) }'
