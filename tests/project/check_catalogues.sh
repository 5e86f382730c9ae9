#!/usr/bin/env bash
# Fails when a message catalogue is malformed, or lacks a message of the template or has it as fuzzy, and when
# the build does not compile it.
set -euo pipefail
cd qn/text/po
for catalogue in *.po; do
  msgfmt --check --output-file=/dev/null "$catalogue"
  msgcmp "$catalogue" qnkernel.pot
  grep -qw "${catalogue%.po}" ../CMakeLists.txt || { echo "$catalogue is not built"; exit 1; }
  grep -q "^\"Language: ${catalogue%.po}\\\\n\"$" "$catalogue" || { echo "$catalogue is another language"; exit 1; }
done
