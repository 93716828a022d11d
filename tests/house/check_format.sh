#!/usr/bin/env bash
# check_format.sh ROOT: sources are as clang-format writes them.
set -euo pipefail
cd "$1"
find platform blac mtx module solve host tools examples bench tests -name '*.h' -o -name '*.cpp' -o -name '*.c' |
  xargs clang-format --dry-run --Werror
