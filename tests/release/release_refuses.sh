#!/bin/sh
# SPDX-License-Identifier: GPL-2.0-only
# scripts/release refuses what would not be a release, each time for its own reason, and agrees to what is one. In a clone
# of the committed tree. Usage: release_refuses.sh BUILD
set -eu
library=$(cd "$1" && pwd)/lib/libZelkApi-64.so
work=$(cd "$1" && pwd)/release-try
cd "$(dirname "$0")/../.."
rm -rf "$work"
git clone --quiet --shared . "$work"
# What is under test is today's, committed or not.
cp scripts/release scripts/check-abi "$work/scripts/"
cp -r abi include "$work/"
cd "$work"
git config user.name test
git config user.email test@example.invalid
commit() { git add --all && git commit --quiet --allow-empty --message "$1"; }

# set_version X.Y.Z: in the header and, dated, in the changelog.
set_version() {
  sed -i "s/^## \[[0-9.]*\] - .*/## [$1] - 2026-01-01/" CHANGELOG.md
  sed -i "s/ZELK_VERSION_MAJOR [0-9]*/ZELK_VERSION_MAJOR $(echo "$1" | cut -d. -f1)/
    s/ZELK_VERSION_MINOR [0-9]*/ZELK_VERSION_MINOR $(echo "$1" | cut -d. -f2)/
    s/ZELK_VERSION_PATCH [0-9]*/ZELK_VERSION_PATCH $(echo "$1" | cut -d. -f3)/
    s/ZELK_VERSION_STRING \"[^\"]*\"/ZELK_VERSION_STRING \"$1\"/" include/zelk/ZelkApi.h
  commit "version $1"
}
# expect agreed|refused TEXT X.Y.Z
expect() {
  result=agreed
  scripts/release --check --library "$library" "$3" > "$work.said" 2>&1 || result=refused
  said=$(cat "$work.said")
  if [ "$result" != "$1" ] || ! echo "$said" | grep -q "$2"; then
    echo "release_refuses: $3 was $result, not $1 with '$2':" >&2
    echo "$said" >&2
    exit 1
  fi
  echo "release_refuses: $3 $result: $2"
}

first=$(sed -n 's/^#define ZELK_VERSION_STRING "\(.*\)".*/\1/p' abi/include/zelk/ZelkApi.h)
major=${first%%.*}
commit "today"
git tag | xargs -r git tag --delete > /dev/null
set_version "$first"
expect agreed "may be made" "$first"
echo >> README.md
expect refused "changes that are not committed" "$first"
git checkout --quiet README.md
expect refused "ZelkApi.h says $first" "$major.9.9"
expect refused "not of the form" "$major.9"
sed -i "s/^## \[$first\] - .*/## [$first] - unreleased/" CHANGELOG.md
commit "no date"
expect refused "no dated head" "$first"
set_version "$first"
git tag "v$first"
expect refused "tagged already" "$first"

# After it: what is put right takes a PATCH, what is added a MINOR, what is broken a MAJOR.
set_version "$major.9.0"
expect agreed "may be made" "$major.9.0"
set_version "0.9.0"
expect refused "does not come after" "0.9.0"
sed -i 's/^  ZELK_INFO_TIMESLOT = 263 /  ZELK_INFO_NEW = 264,\n&/' include/zelk/ZelkApi.h
patch=${first%.*}.$((${first##*.} + 1))
set_version "$patch"
expect refused "MINOR number is due, since these were added to $first: ZELK_INFO_NEW 264" "$patch"
set_version "$major.9.0"
expect agreed "may be made" "$major.9.0"
sed -i '/ZELK_Transfer/d' src/api/exports.def
commit "an export less"
expect refused "takes a new MAJOR number" "$major.9.0"
set_version "$((major + 1)).0.0"
expect agreed "may be made" "$((major + 1)).0.0"
