#!/usr/bin/env bash
# The project's test command (CI runs it through .ci/run).
#
#   scripts/test.sh [CONFIG...]     CONFIG: release asan tsan aarch64 fuzz (default: all five)
#
# Installs the Debian packages it needs, then for each configuration configures
# and builds build/<config> from CMakePresets.json and runs its CTest suite:
#   release  host Release, warnings as errors, benchmarks (smoke run) and tool
#   asan     host Debug, AddressSanitizer + UndefinedBehaviorSanitizer
#   tsan     host RelWithDebInfo, ThreadSanitizer
#   aarch64  cross build with aarch64-linux-gnu-g++, tests under qemu-aarch64
#   fuzz     clang libFuzzer targets (ASan+UBSan), each run for 30 s from the seed corpus
# Prints CTest's summary per configuration and ends with the line
# "N passed, N failed" over all of them; exits non-zero on any failure. A
# configuration that does not configure counts as one failed test; a build
# error fails the tests it prevents (or counts as one failure of its own).
# Full logs: build/logs/<config>-{build,test}.log.
set -uo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
cd "$root" || exit 1
# shellcheck source=scripts/lib/common.sh
. scripts/lib/common.sh

all_configs=(release asan tsan aarch64 fuzz)
configs=("$@")
[[ ${#configs[@]} -gt 0 ]] || configs=("${all_configs[@]}")
for cfg in "${configs[@]}"; do
  if [[ " ${all_configs[*]} " != *" $cfg "* ]]; then
    pb_error "unknown configuration '$cfg' (choose from: ${all_configs[*]})"
    exit 2
  fi
done

if ! pb_install_packages "${PB_TEST_PACKAGES[@]}"; then
  echo "0 passed, 1 failed"
  exit 1
fi

logs=build/logs
mkdir -p "$logs"
total_passed=0
total_failed=0
timings=()

# Prints CTest's output without the per-test progress of passing tests:
# what remains is the output of failed tests and the summary.
show_ctest() {
  grep -Ev '^ *Start +[0-9]+: |^ *[0-9]+/[0-9]+ Test +#[0-9]+: .* +Passed +[0-9.]+ sec$|^Internal ctest changing' "$1"
}

for cfg in "${configs[@]}"; do
  pb_note "configuration $cfg"
  build_log=$logs/$cfg-build.log
  test_log=$logs/$cfg-test.log
  extra=()
  if [[ $cfg == aarch64 ]] && pb_have_arm64_packages libpng-dev libjpeg62-turbo-dev libyuv-dev; then
    extra+=(-DPREVIEWBOKEH_BUILD_TOOLS=ON)  # arm64 image libraries present
  fi

  start=$SECONDS
  if ! cmake --preset "$cfg" "${extra[@]}" >"$build_log" 2>&1; then
    tail -n 80 "$build_log"
    pb_error "$cfg: configure failed (full log: $build_log)"
    total_failed=$((total_failed + 1))
    timings+=("$cfg: configure failed after $((SECONDS - start)) s")
    continue
  fi
  # Keep going past errors: whatever builds is tested; test programs that did
  # not build show up as failed tests (<name>_NOT_BUILT).
  build_ok=1
  if ! cmake --build --preset "$cfg" -- -k 0 >>"$build_log" 2>&1; then
    build_ok=0
    # Each failed step with its diagnostics, up to the next progress line.
    awk '/^FAILED: /{p=1} /^\[[0-9]+\/[0-9]+\] /{p=0} p' "$build_log" | head -n 200
    pb_error "$cfg: build failed (full log: $build_log)"
  fi
  built=$SECONDS

  ctest --preset "$cfg" >"$test_log" 2>&1
  rc=$?
  show_ctest "$test_log"
  tested=$SECONDS

  summary=$(grep -E '^[0-9]+% tests passed, [0-9]+ tests? failed out of [0-9]+' "$test_log" | tail -n 1)
  if [[ $summary =~ ([0-9]+)\ tests?\ failed\ out\ of\ ([0-9]+) ]]; then
    failed=${BASH_REMATCH[1]}
    passed=$((BASH_REMATCH[2] - failed))
  else
    pb_error "$cfg: no CTest summary (exit status $rc; full log: $test_log)"
    passed=0
    failed=1
  fi
  if [[ $rc -ne 0 || $build_ok -eq 0 ]] && [[ $failed -eq 0 ]]; then
    pb_error "$cfg: counted as one failure (ctest status $rc, build ok: $build_ok)"
    failed=1
  fi
  total_passed=$((total_passed + passed))
  total_failed=$((total_failed + failed))
  timings+=("$cfg: build $((built - start)) s, tests $((tested - built)) s, $passed passed, $failed failed")
done

pb_note "summary"
printf '%s\n' "${timings[@]}"
echo "$total_passed passed, $total_failed failed"
[[ $total_failed -eq 0 ]]
