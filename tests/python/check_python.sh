#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# The Python module of a build: its tests, its types as the tests use them, and that it finds the library from where it
# is installed, also when all that is moved: check_python.sh BUILD LIBRARY [PYTEST OPTION...]
set -euo pipefail
export KEL_NN_TEST_LIBRARY=$2 KEL_NN_TEST_MODELS=$1/share/kelnn/models PYTHONPATH=$1/python PYTHONDONTWRITEBYTECODE=1
cd "$(dirname "$0")"
timeout 300 /usr/bin/python3 -m pytest -q -p no:cacheprovider "${@:3}"
cd "$1"
MYPYPATH=$1/python:$OLDPWD /usr/bin/python3 -m mypy --strict --cache-dir "$1/python/mypy" \
  "$1/python/kelnn" "$OLDPWD"/*.py

scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
for component in library python; do
  cmake --install "$1" --component $component --prefix "$scratch/first" >/dev/null
done
mv "$scratch/first" "$scratch/moved"
PYTHONPATH=$scratch/moved/lib/python3/dist-packages /usr/bin/python3 - "$scratch/moved" <<'END'
import sys
import kelnn
kelnn.Library().close()
mapped = {line.split()[-1] for line in open("/proc/self/maps") if "/libkelnn.so" in line or "/libjzdl_host.so" in line}
assert len(mapped) == 2 and all(path.startswith(sys.argv[1]) for path in mapped), mapped
END
