#!/bin/sh
# SPDX-License-Identifier: GPL-2.0-only
# Runs tests/windows/lifecycle.c under Wine against a simulated card in a namespace of its own, in one mode.
# Usage (inside scripts/wine-netns): tests/windows/lifecycle.sh BIN MODE
set -eu
# shellcheck source=scripts/wine-card
. "$(dirname "$0")/../../scripts/wine-card"
folder=$(mktemp -d)
cp "$1/ZelkApi64.dll" "$1/lifecycle.exe" "$folder/"
printf '[Debug]\r\nLevel=1\r\n[General]\r\nHdlcLog=1\r\n' > "$folder/ZelkApi.ini"
start_card "$folder" "$1/zelk-cardsim.exe" --cards 1 --trunks 1 --seconds 170
cd "$folder"
result=0
timeout 150 wine lifecycle.exe "$(wine winepath -w "$folder/ZelkApi64.dll" | tr -d '\r')" "$2" || result=$?
if [ "$2" = exit ]; then
  # The process left in the middle of a call: what was pending is in the log all the same.
  grep -q 'DCHANNEL UP' "$folder/ZelkApi.log" || { echo "the log lacks what was pending"; result=1; }
fi
if grep -qv "$(printf '\r$')" "$folder/ZelkApi.log"; then
  echo "a line of the log does not end in CR LF"
  result=1
fi
ls "$folder"/zelk-100001-1.hdlc > /dev/null || result=1
end_card
trap - EXIT
if [ "$result" -ne 0 ]; then
  cat "$folder/ZelkApi.log"
fi
rm -rf "$folder"
exit "$result"
