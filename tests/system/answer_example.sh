#!/bin/sh
# SPDX-License-Identifier: GPL-2.0-only
# Lets examples/answer.c serve two calls of a simulated card. Usage (inside scripts/netns): EXAMPLE SIMULATOR
set -eu
example=$(realpath "$1")
simulator=$(realpath "$2")
folder=$(mktemp -d)
cd "$folder"
: > simulator.txt
"$simulator" --cards 1 --trunks 1 --seconds 60 --calls 2 --calls-per-second 1 --concurrent 1 --calling 0305551234 \
  --record heard > simulator.txt 2>&1 &
card=$!
answer=
trap 'kill $card $answer 2> /dev/null || true; rm -rf "$folder"' EXIT
while ! grep -q '^card 1:' simulator.txt; do
  kill -0 $card
  sleep 0.05
done
# A second of A-law that is like nothing else, in a WAV file.
python3 -c '
import random, struct, sys
sound = bytes(random.Random(7).randrange(256) for _ in range(8000))
fmt = struct.pack("<HHIIHH", 6, 1, 8000, 8000, 1, 8)
body = b"WAVEfmt " + struct.pack("<I", len(fmt)) + fmt + b"data" + struct.pack("<I", len(sound)) + sound
sys.stdout.buffer.write(b"RIFF" + struct.pack("<I", len(body)) + body)' > prompt.wav
mkfifo keys
"$example" < keys > out.txt &
answer=$!
exec 3> keys
wait $card || { cat simulator.txt; exit 1; }
echo >&3
wait $answer
cat out.txt
[ "$(grep -cx 'channel [0-9]*: call from 0305551234' out.txt)" -eq 2 ]
[ "$(grep -cx 'channel [0-9]*: NORMAL_CLEARING' out.txt)" -eq 2 ]
# Each caller has heard its beginning, its middle and its end, but for what came too late for the hang-up.
python3 -c '
import glob
sound = open("prompt.wav", "rb").read()[-8000:]
files = glob.glob("heard/*.wav")
assert len(files) == 2, files
for name in files:
    heard = open(name, "rb").read()
    assert all(sound[at:at + 800] in heard for at in (0, 3600, 6800)), name'
