# SPDX-License-Identifier: Apache-2.0
"""Where models are when nobody says."""
import os
from pathlib import Path


def find_models() -> str:
    """The directory of models that the command line takes too: the one that $KELNN_MODELS names; else the first that has
    models of the user's, $XDG_DATA_HOME/kelnn/models (~/.local/share/kelnn/models), and share/kelnn/models of the prefix
    that this module is installed in. The last one where none has any.
    """
    if chosen := os.environ.get("KELNN_MODELS"):
        return chosen
    data = os.environ.get("XDG_DATA_HOME", "")
    own = Path(data) if os.path.isabs(data) else Path("~/.local/share").expanduser()
    # lib/python3/dist-packages/kelnn of the prefix; python/kelnn of a build.
    installed = [parent / "share" / "kelnn" / "models" for parent in Path(__file__).resolve().parents[1:5]]
    places = [own / "kelnn" / "models", *installed]
    return str(next((place for place in places if any(place.glob("*.bin"))), places[-1]))
