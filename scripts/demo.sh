#!/usr/bin/env bash
# Builds the library and the command-line tool (host Release, build/demo) and
# runs the tool's demo, which writes its results under out/demo.
#
#   scripts/demo.sh [extra arguments for 'previewbokeh demo']
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
cd "$root"
# shellcheck source=scripts/lib/common.sh
. scripts/lib/common.sh

pb_install_packages "${PB_DEMO_PACKAGES[@]}"

build=build/demo
mkdir -p build
cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release \
  -DPREVIEWBOKEH_BUILD_TESTS=OFF -DPREVIEWBOKEH_BUILD_BENCH=OFF -DPREVIEWBOKEH_BUILD_TOOLS=ON \
  >"$build.configure.log" 2>&1 || { cat "$build.configure.log"; exit 1; }

# Written at configure time: TOOL_TARGET and TOOL (the tool's target and path,
# empty without one) and ASSIST_DIR.
# shellcheck disable=SC1091
. "$build/build_paths.sh"
if [[ -z ${TOOL:-} ]]; then
  pb_error "no command-line tool in this build: tools/previewbokeh defines no tool target (see $build.configure.log)"
  exit 1
fi

cmake --build "$build" -j2 --target "$TOOL_TARGET" velkcamalgassist
mkdir -p out/demo
# The tool loads the host assist library through the loader's search path.
LD_LIBRARY_PATH="$ASSIST_DIR${LD_LIBRARY_PATH:+:$LD_LIBRARY_PATH}" "$TOOL" demo --out out/demo "$@"
