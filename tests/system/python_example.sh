#!/bin/sh
# SPDX-License-Identifier: GPL-2.0-only
# Runs examples/dial.py against the library and a simulated card. Usage (inside scripts/netns): LIBRARY SIMULATOR
set -eu
here=$(cd "$(dirname "$0")/../.." && pwd)
folder=$(mktemp -d)
cp "$1" "$folder/"
"$2" --cards 1 --trunks 1 --seconds 60 > "$folder/simulator.txt" 2>&1 &
simulator=$!
trap 'kill $simulator 2> /dev/null || true; rm -rf "$folder"' EXIT
while ! grep -q '^card 1:' "$folder/simulator.txt"; do
  kill -0 $simulator
  sleep 0.05
done
python3 "$here/examples/dial.py" "$folder/$(basename "$1")" 5551234 > "$folder/out.txt" || { cat "$folder/out.txt"; exit 1; }
cat "$folder/out.txt"
grep -q '^channel 0 of 30 is READY$' "$folder/out.txt"
grep -q '^connected$' "$folder/out.txt"
grep -q '^disconnected: ' "$folder/out.txt"
