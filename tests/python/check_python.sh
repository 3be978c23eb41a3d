#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# The Python module of a build: its tests, and its types as the tests use them: check_python.sh BUILD LIBRARY
set -euo pipefail
export KEL_NN_TEST_LIBRARY=$2 KEL_NN_TEST_MODELS=$1/share/kelnn/models PYTHONPATH=$1/python PYTHONDONTWRITEBYTECODE=1
cd "$(dirname "$0")"
timeout 300 /usr/bin/python3 -m pytest -q -p no:cacheprovider "${@:3}"
cd "$1"
MYPYPATH=$1/python:$OLDPWD /usr/bin/python3 -m mypy --strict --cache-dir "$1/python/mypy" \
  "$1/python/kelnn" "$OLDPWD"/*.py
