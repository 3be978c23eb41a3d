#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# The Python module of a build: its tests, its types as the tests use them, and that it works where it is installed and then
# moved, and as a wheel: check_python.sh BUILD LIBRARY [PYTEST OPTION...]
set -euo pipefail
export KEL_NN_TEST_LIBRARY=$2 KEL_NN_TEST_MODELS=$1/share/kelnn/models PYTHONPATH=$1/python PYTHONDONTWRITEBYTECODE=1
export KEL_NN_TEST_TOOL=$1/tools/kelnn
cd "$(dirname "$0")"
root=$(cd ../.. && pwd)
export PYTHONPATH=$PYTHONPATH:$root/examples
timeout 300 /usr/bin/python3 -m pytest -q -p no:cacheprovider "${@:3}"
cd "$1"
# Reading Dask takes a minute.
MYPYPATH=$1/python:$OLDPWD:$root/examples /usr/bin/python3 -m mypy --strict --cache-dir "$1/python/mypy" \
  --config-file <(printf '[mypy]\n[mypy-distributed.*,dask.*,matplotlib.*]\nfollow_imports = skip\n') \
  "$1/python/kelnn" "$OLDPWD"/*.py "$root"/{examples/annotate,bench/bench}_archive.py

scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
# works_in DIRECTORY TOP: the module in the directory finds a person, by the library that lies below TOP.
works_in() {
  (cd / && PYTHONPATH=$1 /usr/bin/python3 - "$2" "$KEL_NN_TEST_MODELS" "$root/examples/pictures/scenes/persons_landscape.jpg") <<'END'
import sys
import numpy as np
from PIL import Image
import kelnn
top, models, picture = sys.argv[1:]
with kelnn.PersonDetector(kelnn.Library(models), (640, 360)) as persons:
    assert persons.detect(np.asarray(Image.open(picture)))
mapped = {line.split()[-1] for line in open("/proc/self/maps") if "/libkelnn.so" in line or "/libjzdl_host.so" in line}
assert len(mapped) == 2 and all(path.startswith(top) for path in mapped), mapped
END
}
for component in library python; do
  cmake --install "$1" --component $component --prefix "$scratch/first" >/dev/null
done
mv "$scratch/first" "$scratch/moved"
works_in "$scratch/moved/lib/python3/dist-packages" "$scratch/moved"

# The wheel, of what has been built; from a copy, since setuptools writes into the tree that it builds.
mkdir -p "$scratch/tree/include"
cp "$root"/{setup.py,pyproject.toml} "$scratch/tree"
cp "$root/include/kel_nn.h" "$scratch/tree/include"
export PIP_DISABLE_PIP_VERSION_CHECK=1 PIP_ROOT_USER_ACTION=ignore
. "$root/tests/install/page.sh"
pip() { /usr/bin/python3 -m pip "$@"; }
(cd "$scratch/tree" && export KELNN_BUILD=$1 && eval "$(page Python | grep '^pip')" &&
  pip install --no-deps --no-index --target "$scratch/site" kelnn-*.whl) >"$scratch/pip.log" 2>&1 || {
  cat "$scratch/pip.log" >&2
  exit 1
}
works_in "$scratch/site" "$scratch/site"
