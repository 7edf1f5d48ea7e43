#!/usr/bin/env bash
# Installs what is missing, builds and runs the tests: ./test.sh [PRESET], where PRESET is release (the
# default), debug, asan or tsan.
set -euo pipefail
cd "$(dirname "$0")"
preset=${1:-release}

./install-packages.sh
cmake --preset "$preset" >/dev/null
cmake --build --preset "$preset"
ctest --preset "$preset" --parallel "$(nproc)"
