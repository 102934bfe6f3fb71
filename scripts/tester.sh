#!/usr/bin/env bash
# Installs what is missing, configures, builds and runs every test.
set -euo pipefail
racine="$(cd "$(dirname "$0")/.." && pwd)"
"$racine/scripts/installer-dependances.sh"

build="${TAVI_BUILD:-$racine/build}"
cmake -S "$racine" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DTAVI_WERROR=ON
cmake --build "$build" -j2
ctest --test-dir "$build" --output-on-failure -j2 --timeout 300
