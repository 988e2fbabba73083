#!/usr/bin/env bash
# AArch64 instructions per call of previewbokeh_cost's cases, counted under
# qemu-aarch64 with the instruction-count plugin. Each case runs twice, with
# N and with M iterations; (count(N) - count(M)) / (N - M) is the cost of one
# call without the set-up. Counts are summed over all threads of the process.
#
#   run_cost.sh OPTIONS table           markdown table of every case
#   run_cost.sh OPTIONS check BUDGET    frame and weight-engine counts against
#                                       BUDGET ("case count" lines); fails when
#                                       one exceeds its budget by more than 2 %
# Options:
#   --prog FILE  --plugin FILE  --qemu FILE  --sysroot DIR  --assist-dir DIR
#   --n N --m M          iteration counts (default 3 and 1)
#   --scalar             table: add the scalar kernels' counts
#   --out FILE           table: also write it to FILE
set -euo pipefail

prog='' plugin='' qemu='' sysroot='' assist='' n=3 m=1 scalar=0 out=''
while [ $# -gt 0 ]; do
  case "$1" in
    --prog) prog=$2; shift 2 ;;
    --plugin) plugin=$2; shift 2 ;;
    --qemu) qemu=$2; shift 2 ;;
    --sysroot) sysroot=$2; shift 2 ;;
    --assist-dir) assist=$2; shift 2 ;;
    --n) n=$2; shift 2 ;;
    --m) m=$2; shift 2 ;;
    --scalar) scalar=1; shift ;;
    --out) out=$2; shift 2 ;;
    *) break ;;
  esac
done
mode=${1:-}
if [ -z "$prog" ] || [ -z "$plugin" ] || [ -z "$qemu" ] || [ "$n" -le "$m" ] ||
   { [ "$mode" != table ] && [ "$mode" != check ]; } ||
   { [ "$mode" = check ] && [ $# -ne 2 ]; }; then
  sed -n '2,16s/^# \{0,1\}//p' "$0" >&2
  exit 2
fi

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# count ITERATIONS RATIO [PROGRAM ARGS...]: instructions of one run (RATIO is
# the ratio property, '-' for none). The library's log lines go to a file,
# shown only when the run fails.
count() {
  local iterations=$1 ratio=$2
  shift 2
  local cmd=("$qemu")
  [ -n "$sysroot" ] && cmd+=(-L "$sysroot")
  cmd+=(-plugin "$plugin,out=$work/count" -E "LD_LIBRARY_PATH=$assist")
  [ "$ratio" != - ] && cmd+=(-E "PERSIST_VENDOR_CAM_PREBOKEH_RATIO=$ratio")
  rm -f "$work/count"
  if ! "${cmd[@]}" "$prog" "$@" "$iterations" </dev/null >"$work/stdout" 2>"$work/stderr"; then
    echo "run failed: $prog $* $iterations (ratio $ratio)" >&2
    cat "$work/stdout" >&2
    tail -n 20 "$work/stderr" >&2
    exit 1
  fi
  awk '$1 == "insns" { print $2 }' "$work/count"
}

# per_call RATIO [PROGRAM ARGS...]: sets $calls to the instructions per call,
# $units and $unit to the output units of one call, from the program's report.
per_call() {
  local ratio=$1
  shift
  local big small
  big=$(count "$n" "$ratio" "$@")
  small=$(count "$m" "$ratio" "$@")
  read -r _ units unit <"$work/stdout"
  calls=$(awk -v a="$big" -v b="$small" -v d=$((n - m)) 'BEGIN { printf "%.0f", (a - b) / d }')
}

per_unit() { awk -v c="$1" -v u="$2" 'BEGIN { printf "%.3f\n", c / u }'; }
millions() { awk -v c="$1" 'BEGIN { printf "%.2f M\n", c / 1e6 }'; }

# The gated cases: name, ratio property, program case.
gated_cases() {
  for r in 1 2 4 6 8; do echo "iBokehBlurImage/ratio$r $r iBokehBlurImage"; done
  echo "weight_async_process/480x270 - weight_async_process/480x270"
  echo "weight_async_process/960x540 - weight_async_process/960x540"
}

if [ "$mode" = check ]; then
  budget_file=$2
  failed=0
  printf '%-30s %14s %14s %8s\n' case measured budget change
  while read -r name ratio case_name; do
    budget=$(awk -v c="$name" '$1 == c { print $2 }' "$budget_file")
    per_call "$ratio" "$case_name"
    measured=$calls
    if [ -z "$budget" ]; then
      printf '%-30s %14s %14s %8s  FAIL: no budget\n' "$name" "$measured" - -
      failed=1
      continue
    fi
    verdict=$(awk -v c="$measured" -v b="$budget" 'BEGIN {
      d = (c - b) * 100 / b
      v = d > 2 ? "FAIL: over budget by more than 2 %" : (d < -2 ? "ok (below budget: lower it)" : "ok")
      printf "%+7.2f%%  %s\n", d, v }')
    printf '%-30s %14s %14s %s\n' "$name" "$measured" "$budget" "$verdict"
    case "$verdict" in *FAIL*) failed=1 ;; esac
  done < <(gated_cases)
  exit $failed
fi

# Table mode.
{
  echo "| Frame 1920x1080, iBokehBlurImage | instructions per frame | per frame byte |"
  echo "|---|---:|---:|"
  for r in 1 2 4 6 8; do
    per_call "$r" iBokehBlurImage
    c=$calls
    echo "| ratio $r | $c ($(millions "$c")) | $(per_unit "$c" "$units") |"
  done
  echo
  echo "| Weight map 1920x1080, weight_async_process | instructions per call | per weight |"
  echo "|---|---:|---:|"
  for d in 480x270 960x540; do
    per_call - "weight_async_process/$d"
    c=$calls
    echo "| from $d | $c ($(millions "$c")) | $(per_unit "$c" "$units") |"
  done
  echo
  if [ "$scalar" = 1 ]; then
    echo "| Kernel (vector table; scalar twin) | instructions per call | per unit | scalar per call | scalar per unit | unit |"
    echo "|---|---:|---:|---:|---:|---|"
  else
    echo "| Kernel (vector table) | instructions per call | per unit | unit |"
    echo "|---|---:|---:|---|"
  fi
  for k in $("$qemu" ${sysroot:+-L "$sysroot"} "$prog" --list | grep -v '/\|^iBokeh'); do
    per_call - "$k"
    c=$calls
    if [ "$scalar" = 1 ]; then
      per_call - --scalar "$k"
      s=$calls
      echo "| $k | $c | $(per_unit "$c" "$units") | $s | $(per_unit "$s" "$units") | $unit |"
    else
      echo "| $k | $c | $(per_unit "$c" "$units") | $unit |"
    fi
  done
} | tee "${out:-/dev/null}"
