#!/usr/bin/env bash
# Holds the names that the library exports against the checked list: an export that comes or goes unnoticed
# breaks hosts.
#
#   check_exports.sh LIBRARY [--update]
set -euo pipefail
list=cmake/exports.txt
names=$(nm -D --defined-only -C "$1" | sed -n 's/^[0-9a-f]* [TDBRVW] //p' | LC_ALL=C sort -u)
if [ "${2:-}" = --update ]; then
  printf '%s\n' "$names" >"$list"
elif ! diff -u "$list" <(printf '%s\n' "$names"); then
  echo "The exports differ from $list. If that is meant: $0 LIBRARY --update" >&2
  exit 1
fi
printf '%s exports\n' "$(printf '%s\n' "$names" | wc -l)"
