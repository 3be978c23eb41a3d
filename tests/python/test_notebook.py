# SPDX-License-Identifier: Apache-2.0
"""The notebook's cells run, one after the other, and draw; nbconvert runs them too where it is installed. So does the
example.
"""
import importlib.util
import json
import os
import subprocess
import sys
from pathlib import Path
from typing import Any, Dict

import pytest
from conftest import EXAMPLES, scene

import kelnn

NOTEBOOK = EXAMPLES / "first_steps.ipynb"


def test_cells(models: str, tmp_path: Path) -> None:
    cells = ["".join(cell["source"]) for cell in json.loads(NOTEBOOK.read_text())["cells"]
             if cell["cell_type"] == "code"]
    # What a cell draws is shown where it ends.
    end = "import matplotlib.pyplot as plt\nassert plt.get_fignums() or not DRAWS\nplt.savefig(OUT) if DRAWS else 0\n"
    program = "".join(f"{cell}\nDRAWS, OUT = {'show(' in cell or 'imshow' in cell}, 'out{i}.png'\nos.chdir(SCRATCH)\n"
                      f"{end}os.chdir(EXAMPLES)\nplt.close('all')\n" for i, cell in enumerate(cells))
    start = f"import os\nEXAMPLES, SCRATCH = {str(EXAMPLES)!r}, {str(tmp_path)!r}\n"
    environment: Dict[str, Any] = {**os.environ, "KELNN_MODELS": models, "MPLBACKEND": "Agg"}
    subprocess.run([sys.executable, "-c", start + program], cwd=EXAMPLES, env=environment, check=True)
    assert len(list(tmp_path.glob("*.png"))) == 3


def test_example(models: str, tmp_path: Path) -> None:
    command = [sys.executable, str(EXAMPLES / "detect_persons.py")]
    picture = str(EXAMPLES / "pictures" / "scenes" / "persons_landscape.jpg")
    lines = subprocess.run([*command, models, picture], check=True, capture_output=True, text=True).stdout.splitlines()
    with kelnn.PersonDetector(kelnn.Library(models), (640, 360)) as persons:
        found = persons.detect(scene("persons_landscape"))
    assert lines == [" ".join([*map(str, one.box), f"{one.score:.2f}"]) for one in found] and found
    failed = subprocess.run([*command, str(tmp_path), picture], capture_output=True, text=True)
    assert failed.returncode == 1 and "person-detection-landscape: the model does not load" in failed.stderr


@pytest.mark.skipif(not (importlib.util.find_spec("nbconvert") and importlib.util.find_spec("ipykernel")),
                    reason="python3-nbconvert and python3-ipykernel are not installed")
def test_nbconvert(models: str, tmp_path: Path) -> None:
    environment = {**os.environ, "KELNN_MODELS": models, "IPYTHONDIR": str(tmp_path), "HOME": str(tmp_path)}
    command = [sys.executable, "-m", "nbconvert", "--to", "notebook", "--execute", "--output-dir", str(tmp_path),
               str(NOTEBOOK)]
    subprocess.run(command, env=environment, check=True, timeout=200)
    done = json.loads((tmp_path / NOTEBOOK.name).read_text())
    pictures = [output for cell in done["cells"] for output in cell.get("outputs", []) if "image/png" in
                output.get("data", {})]
    assert len(pictures) == 3
