#!/usr/bin/env bash
# Fails when a message catalogue, of the library or of the tools, is malformed, or lacks a message of the template
# or has it as fuzzy, and when the build does not compile it, or not in the order of the language table.
set -euo pipefail
for template in qn/text/po/qnkernel.pot tools/po/qntools.pot; do
  folder=$(dirname "$template")
  build=$(dirname "$folder")/CMakeLists.txt
  grep -q '^foreach(language ja de es fr zh_CN zh_TW da fi it ko nl nb pt_BR pt_PT ru sv pl)$' "$build" ||
    { echo "$build has other languages"; exit 1; }
  for catalogue in "$folder"/*.po; do
    language=$(basename "$catalogue" .po)
    msgfmt --check --output-file=/dev/null "$catalogue"
    msgcmp "$catalogue" "$template"
    grep -qw "$language" "$build" || { echo "$catalogue is not built"; exit 1; }
    grep -q "^\"Language: $language\\\\n\"$" "$catalogue" || { echo "$catalogue is another language"; exit 1; }
  done
done
