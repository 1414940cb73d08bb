#!/bin/sh
# SPDX-License-Identifier: GPL-2.0-only
# The service of docs/linux.md, with the installed library: an application's own folder with a link to the library, run as
# an ordinary account as the unit file says. A call is made; log and capture stand in the folder, and nothing else was
# written. Usage: service.sh ROOT   (the folder in which the packages are installed)
set -eu
root=$(cd "$1" && pwd)
cd "$(dirname "$0")/../.."
unit=packaging/systemd/announcement.service
# Where every account can get.
place=$(mktemp -d /tmp/zelk-service.XXXXXX)
trap 'rm -rf "$place" "$place.before"' EXIT
chmod 755 "$place"
cp -r "$root/usr" "$place/usr"
cp scripts/netns "$place/netns"
libraries=$(dirname "$(find "$place/usr" -name 'libZelkApi-64.so')")

value() { sed -n "s/^$1=//p" "$unit"; }
folder=$place$(value WorkingDirectory)
program=$(value ExecStart)
mkdir -p "$folder"
# As docs/linux.md has it.
cc -I"$place/usr/include" "$place/usr/share/doc/libzelkapi64-dev/examples/announcement.c" -L"$libraries" -lZelkApi-64 \
  "-Wl,-rpath,\$ORIGIN" -pthread -o "$folder/announcement"
ln -s "$libraries/libZelkApi-64.so" "$folder/libZelkApi-64.so"
printf '[Debug]\nLevel=1\n\n[General]\nHdlcLog=1\n' > "$folder/libZelkApi.ini"
sox -n -r 8000 -c 1 -e a-law "$folder/prompt.wav" synth 0.5 sine 800
find "$place" ! -path "$folder*" | sort > "$place.before"
as_account=""
if [ "$(id -u)" -eq 0 ]; then
  chown -R 65534:65534 "$folder"
  as_account="setpriv --reuid 65534 --regid 65534 --clear-groups --no-new-privs"
fi

# shellcheck disable=SC2016  # for the inner shell
# shellcheck disable=SC2086  # words
(cd "$folder" && timeout 60 $as_account "$place/netns" sh -euc '
  work=$TMPDIR
  "$1/usr/bin/zelk-cardsim" --calls 1 --calls-per-second 1 --stay --seconds 50 --report "$work/report.json" > "$work/card" 2>&1 &
  card=$!
  until grep -q "^card 1:" "$work/card"; do kill -0 $card; sleep 0.1; done
  $2 > "$work/said" 2>&1 & service=$!
  until grep -q "ended 1 (connected 1)" "$work/card"; do
    kill -0 $card && kill -0 $service || { cat "$work/said" "$work/card"; exit 1; }
    sleep 0.1
  done
  kill -INT $service
  wait $service
  kill $card' service "$place" "$place$program") || { echo "service: no call was made" >&2; exit 1; }

fail() {
  echo "service: $*" >&2
  exit 1
}
grep -q "DCHANNEL UP" "$folder/libZelkApi.log" || fail "no log in the application's folder"
[ -s "$(find "$folder" -name 'zelk-*-1.hdlc')" ] || fail "no capture in the application's folder"
find "$place" ! -path "$folder*" | sort | cmp "$place.before" - || fail "something was written elsewhere"
echo "service: as an ordinary account, with log, ini and capture in its folder"
