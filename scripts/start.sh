#!/usr/bin/env bash
# Installs what is missing, builds Corvel and starts it; arguments go to corvel.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/deps.sh
cmake -S . -B build -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_INSTALL_PREFIX=/usr >/dev/null
cmake --build build --target corvel -j "$(nproc)"
exec build/bin/corvel "$@"
