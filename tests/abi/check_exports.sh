#!/usr/bin/env bash
# The shared library's dynamic symbol table holds exactly the export list.
set -eu
got=$(nm -D --defined-only "$1" | awk '{print $3}' | sed 's/@.*//' | sort)
want=$(sort "$2")
if [ "$got" != "$want" ]; then
  echo "exports differ from the list (< library, > list):"
  diff <(echo "$got") <(echo "$want")
  exit 1
fi
echo "$(echo "$want" | wc -l) exports match the list"
