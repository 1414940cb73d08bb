#!/bin/sh
# SPDX-License-Identifier: GPL-2.0-only
# The same in a shell: refuses callers who hide their number, answers the others with a sound.
# Usage: worker.sh SOUND [OPTION OF zelk-fleet...]
sound=$1
shift
dir=$(mktemp -d)
trap 'rm -r "$dir"' EXIT
mkfifo "$dir/answers"
# shellcheck disable=SC2094  # a pipe with a name: what one end writes the other reads
zelk-fleet "$@" work < "$dir/answers" | while read -r call; do
  case $call in
    *'"type":"incoming"'*) ;;
    *) continue ;;
  esac
  id=${call##*\"id\":}
  id=${id%%[!0-9]*}
  case $call in
    *'"calling":""'*) echo "{\"id\":$id,\"do\":\"reject\"}" ;;
    *) echo "{\"id\":$id,\"do\":\"answer\",\"play\":\"$sound\"}" ;;
  esac
done > "$dir/answers"
