#!/usr/bin/env bash
# Installs what is missing, builds and runs the tests: ./test.sh [PRESET], where PRESET is release (the
# default), debug, asan, tsan or fuzz. The default has the fuzzers run for some seconds, too.
set -euo pipefail
cd "$(dirname "$0")"
preset=${1:-release}

run() {
    cmake --preset "$1" >/dev/null
    cmake --build --preset "$1"
    ctest --preset "$1" --parallel "$(nproc)"
}

# What somebody set for programs of their own.
unset MGMT_LOG MGMT_STORE

./install-packages.sh
if [ "$preset" = release ]; then run fuzz; fi
run "$preset"
