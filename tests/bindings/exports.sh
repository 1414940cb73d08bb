#!/bin/sh
# SPDX-License-Identifier: GPL-2.0-only
# The queue library shows the functions of its header and nothing else. Usage: exports.sh LIBRARY HEADER
set -eu
wanted=$(sed -nE 's/.*ZELKQ_CALL (ZELKQ_[A-Za-z]+)\(.*/\1/p' "$2" | sort)
case $1 in
  *.dll) found=$(x86_64-w64-mingw32-objdump -p "$1" | sed -n '/Name Pointer/,$p' |
    sed -nE 's/^[[:space:]]*\[ *[0-9]+\] ([^ ]+)$/\1/p' | sort) ;;
  # The version's own name is absolute.
  *) found=$(nm -D --defined-only "$1" | awk '$2 != "A" {sub("@.*", "", $3); print $3}' | sort) ;;
esac
[ "$(printf '%s\n' "$wanted" | wc -l)" -ge 11 ]
if [ "$found" != "$wanted" ]; then
  printf 'exports: found\n%s\nbut the header has\n%s\n' "$found" "$wanted" >&2
  exit 1
fi
