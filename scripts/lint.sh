#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Licence lines, layout and static analysis, of Python too; silent when there is nothing to say. Needs the configuration `gcc`.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/check_licences.sh
git ls-files '*.h' '*.hpp' '*.c' '*.cpp' | xargs clang-format --dry-run --Werror
git ls-files '*.py' | xargs flake8 --max-line-length 130 --per-file-ignores 'scripts/*:E203,E501 tests/*:E131,E501'
/usr/bin/python3 -m mypy --cache-dir build/mypy --no-error-summary -p models
cmake --preset gcc >/dev/null
# What no -std is given for is C++17, the default of the compiler that the commands are written for, not of Clang.
# Tests are left to the compilers: the matchers of their framework set the analyser off.
git ls-files 'src/*.cpp' 'plat/*.cpp' 'kit/*.cpp' 'tools/*.cpp' |
  xargs -P "$(nproc)" -n 4 clang-tidy -p build/gcc --extra-arg-before=-std=c++17 --quiet 2> >(grep -vE '^[0-9]+ warnings? generated|^Suppressed' >&2)
