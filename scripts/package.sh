#!/usr/bin/env bash
# Builds Corvel's Debian package, build/package/corvel_<version>_amd64.deb, and checks it with
# lintian. Run scripts/deps.sh first on a fresh machine (the README's commands do).
set -euo pipefail
cd "$(dirname "$0")/.."
cmake -S . -B build -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_INSTALL_PREFIX=/usr >/dev/null
cmake --build build -j "$(nproc)" --target corvel corvel_assets corvel_prompts corvel_phony corvel_desktop_files
rm -rf build/package
(cd build && cpack -B package >/dev/null)
package=$(ls build/package/corvel_*_amd64.deb)
echo "$package"
# Errors fail the build; the warnings left are listed in packaging/lintian-warnings.md.
lintian --fail-on error "$package"
