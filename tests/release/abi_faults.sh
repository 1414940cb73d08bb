#!/bin/sh
# SPDX-License-Identifier: GPL-2.0-only
# The ABI check finds what would break programs: libraries and headers, each with one fault built in, and what is no fault
# beside them. Usage: abi_faults.sh BUILD
set -eu
build=$(cd "$1" && pwd)
cd "$(dirname "$0")/../.."
root=$PWD
work=$build/abi-faults
rm -rf "$work"
mkdir -p "$work"

# of LIBRARY FOLDER SOURCE: the library that is spoilt from here on.
of() {
  library=$1
  folder=$2
  source=$3
  compile=$(ninja -C "$build" -t commands "lib/$1" | grep -- "-c .*/$3$")
  link=$(ninja -C "$build" -t commands "lib/$1" | tail -n 1 | sed 's/^: && //; s/ && :$//')
  object=$(echo "$compile" | sed 's/.* -o \([^ ]*\) .*/\1/')
}

# prepare NAME: headers, an export list and the exports of its own, to be spoilt.
prepare() {
  mkdir -p "$work/$1/include" "$work/$1/api"
  cp -r include/zelk "$work/$1/include/"
  cp "$folder/exports.map" "$folder/exports.def" "$folder/$source" "$work/$1/api/"
}

# link NAME, build NAME: the library with that export list, or with that header and those exports as well.
link() {
  [ -f "$work/$1/exports.o" ] || cp "$build/$object" "$work/$1/exports.o"
  (
    cd "$build"
    sh -c "$(echo "$link" | sed "s|$object|$work/$1/exports.o|g; s| -o [^ ]*| -o $work/$1/$library|
      s|=[^ ]*/exports\.map|=$work/$1/api/exports.map|")"
  )
}
build() {
  (
    cd "$build"
    sh -c "$(echo "$compile" | sed "s|$object|$work/$1/exports.o|g; s|-I$root/include|-I$work/$1/include|g
      s|-c [^ ]*/$source|-c $work/$1/api/$source|")"
  )
  link "$1"
}

# check NAME: with the library of the name, or that of the build when only lists and header differ.
check() {
  result=0
  spoilt=$work/$1/$library
  [ -f "$spoilt" ] || spoilt=$build/lib/$library
  scripts/check-abi --library "$spoilt" --include "$work/$1/include" --def "$work/$1/api/exports.def" \
    > "$work/$1/said" 2>&1 || result=$?
  return "$result"
}

# must_fail NAME TEXT: the check fails, and says so.
must_fail() {
  if check "$1" || ! grep -q "$2" "$work/$1/said"; then
    echo "abi_faults: $1 was not found, or not named:" >&2
    cat "$work/$1/said" >&2
    exit 1
  fi
  echo "abi_faults: $1 is found"
}

of libZelkApi-64.so src/api exports.cpp
prepare export-removed
sed -i '/ZELK_Transfer/d' "$work/export-removed/api/exports.map"
link export-removed
must_fail export-removed "1 Removed"

prepare name-removed-from-the-dll
sed -i '/ZELK_Transfer/d' "$work/name-removed-from-the-dll/api/exports.def"
must_fail name-removed-from-the-dll "DLL's names lack ZELK_Transfer"

prepare constant-changed
sed -i 's/ZELK_INFO_TRUNK = 262/ZELK_INFO_TRUNK = 264/' "$work/constant-changed/include/zelk/ZelkApi.h"
must_fail constant-changed "ZELK_INFO_TRUNK"

prepare argument-changed
sed -i '/ZELK_SetChannelInfo(/s/int32_t value/int64_t value/' "$work/argument-changed/include/zelk/ZelkApi.h" \
  "$work/argument-changed/api/exports.cpp"
sed -i 's/SetInfoNumber(device, key, value)/SetInfoNumber(device, key, static_cast<int32_t>(value))/' \
  "$work/argument-changed/api/exports.cpp"
build argument-changed
must_fail argument-changed "parameter 3"

# A further export and constant break nobody.
prepare something-added
sed -i 's/ZELK_INFO_TIMESLOT = 263 /ZELK_INFO_NEW = 264, ZELK_INFO_TIMESLOT = 263 /
  s/^ZELK_API bool ZELK_CALL ZELK_Init(void);/&\nZELK_API bool ZELK_CALL ZELK_New(void);/' \
  "$work/something-added/include/zelk/ZelkApi.h"
printf 'bool ZELK_CALL ZELK_New(void) {\n  return true;\n}\n' >> "$work/something-added/api/exports.cpp"
sed -i 's/^  ZELK_Init$/&\n  ZELK_New/' "$work/something-added/api/exports.def"
sed -i 's/^    ZELK_Init;$/&\n    ZELK_New;/' "$work/something-added/api/exports.map"
build something-added
check something-added || { cat "$work/something-added/said" >&2; exit 1; }
added=$(scripts/check-abi --added --include "$work/something-added/include" --def "$work/something-added/api/exports.def")
[ "$added" = "$(printf 'ZELK_New\nZELK_INFO_NEW 264')" ] || { echo "abi_faults: added is '$added'" >&2; exit 1; }
echo "abi_faults: what is added is no fault"

# The queue library.
of libzelkqueue.so bindings/queue queue.cpp
prepare queue-export-removed
sed -i 's/local: \*;/local: ZELKQ_Wake; *;/' "$work/queue-export-removed/api/exports.map"
link queue-export-removed
must_fail queue-export-removed "1 Removed"

prepare queue-name-removed-from-the-dll
sed -i '/ZELKQ_Wake/d' "$work/queue-name-removed-from-the-dll/api/exports.def"
must_fail queue-name-removed-from-the-dll "DLL's names lack ZELKQ_Wake"

prepare queue-constant-changed
sed -i 's/ZELKQ_NO_TEXT = -6/ZELKQ_NO_TEXT = -9/' "$work/queue-constant-changed/include/zelk/ZelkQueue.h"
must_fail queue-constant-changed "ZELKQ_NO_TEXT"

prepare queue-fields-exchanged
sed -i 's/int32_t channel;   /int32_t swapped;   /; s/int32_t param;     /int32_t channel;   /; s/swapped/param/' \
  "$work/queue-fields-exchanged/include/zelk/ZelkQueue.h"
must_fail queue-fields-exchanged '"channel"'

prepare queue-argument-changed
sed -i '/ZELKQ_SetRing(/s/int32_t blocks/int64_t blocks/' "$work/queue-argument-changed/include/zelk/ZelkQueue.h" \
  "$work/queue-argument-changed/api/queue.cpp"
build queue-argument-changed
must_fail queue-argument-changed "parameter 2"
