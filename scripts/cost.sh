#!/usr/bin/env bash
# Prints the table of AArch64 instructions per frame, per weight map and per
# kernel call (cross build in build/aarch64, counted under qemu-aarch64 with
# bench/cost/insn_count_plugin.c), and writes it to build/aarch64/cost_table.md.
#
#   scripts/cost.sh
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
cd "$root"
# shellcheck source=scripts/lib/common.sh
. scripts/lib/common.sh

pb_install_packages cmake ninja-build gcc g++-aarch64-linux-gnu qemu-user googletest

mkdir -p build
if [[ ! -f build/aarch64/CMakeCache.txt ]]; then
  cmake --preset aarch64 >build/aarch64.configure.log 2>&1 ||
    { cat build/aarch64.configure.log; exit 1; }
fi
cmake --build --preset aarch64 --target cost-table
