#!/usr/bin/env bash
# Fails when a tracked C or C++ source differs from what .clang-format asks for.
set -euo pipefail
cd "$(dirname "$0")/.."
git ls-files '*.c' '*.cpp' '*.h' | xargs clang-format --dry-run --Werror
