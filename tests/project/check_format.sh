#!/usr/bin/env bash
# Fails when a source file is not laid out as .clang-format says; never rewrites.
set -euo pipefail
mapfile -t files < <(find qn tools examples tests benchmarks fuzz -name '*.h' -o -name '*.cpp' | sort)
clang-format --dry-run -Werror "${files[@]}"
echo "${#files[@]} files"
