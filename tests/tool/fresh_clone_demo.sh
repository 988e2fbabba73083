#!/usr/bin/env bash
# Runs the README's main command the way a new user does: clones the
# repository's committed HEAD into an empty directory, runs scripts/demo.sh
# there (it builds into the clone), and checks the pictures it writes.
# A tree built in place hides missing steps; a fresh clone does not.
#
#   fresh_clone_demo.sh SOURCE_DIR WORK_DIR
# Exit 77 (skipped) when SOURCE_DIR is not a git checkout.
set -euo pipefail

src=$1
work=$2
if ! git -C "$src" rev-parse --verify -q HEAD >/dev/null; then
  echo "skipped: $src is not a git checkout"
  exit 77
fi
rm -rf "$work"
mkdir -p "$work"
git clone -q --no-hardlinks "$src" "$work/clone"
cd "$work/clone"
echo "cloned $(git rev-parse --short HEAD) into $work/clone"

if ! scripts/demo.sh >"$work/demo.log" 2>&1; then
  tail -n 60 "$work/demo.log"
  echo "FAILED: scripts/demo.sh exited non-zero in a fresh clone (log: $work/demo.log)"
  exit 1
fi
tail -n 12 "$work/demo.log"
/usr/bin/python3 "$src/tests/tool/check_demo_pictures.py" out/demo
