# SPDX-License-Identifier: Apache-2.0
"""Builds the Python module by CMake, which installs it and the library into the wheel. KELNN_BUILD names a build that has
both already, to take them from there.
"""
import os
import re
import shutil
import subprocess
import sys
from pathlib import Path

from setuptools import Extension, setup
from setuptools.command.build_ext import build_ext

ROOT = Path(__file__).resolve().parent


def version() -> str:
    """As the public header has it."""
    header = (ROOT / "include" / "kel_nn.h").read_text()
    return ".".join(re.findall(r"define KEL_NN_VERSION_\w+ +(\d+)", header)[:3])


class BuildByCMake(build_ext):
    def build_extension(self, extension: Extension) -> None:
        package = Path(self.get_ext_fullpath(extension.name)).resolve().parent
        scratch = Path(self.build_temp).resolve()
        build = Path(os.environ.get("KELNN_BUILD", scratch / "build"))
        if "KELNN_BUILD" not in os.environ:
            subprocess.run(
                ["cmake", "-S", str(ROOT), "-B", str(build), "-G", "Ninja", "-DCMAKE_BUILD_TYPE=Release",
                 "-DKEL_NN_PYTHON=ON", "-DKEL_NN_TOOLS=OFF", f"-DPython_EXECUTABLE={sys.executable}"], check=True)
            jobs = ["--parallel", str(self.parallel or os.cpu_count() or 1)]
            subprocess.run(["cmake", "--build", str(build), "--target", "kelnn_python", *jobs], check=True)
        installed = scratch / "installed"
        for component in "library", "python":
            subprocess.run(["cmake", "--install", str(build), "--component", component, "--prefix", str(installed)], check=True)
        # The module looks for the library beside itself too.
        module, library = next(installed.rglob("kelnn/__init__.py")).parent, next(installed.rglob("libkelnn.so.?"))
        shutil.copytree(module, package, dirs_exist_ok=True)
        shutil.copy(library, package)
        shutil.copytree(library.parent / "kelnn", package / "kelnn", ignore=shutil.ignore_patterns("*.so.*.*"))
        shutil.copy(next(installed.rglob("LICENSE")), package)


setup(
    name="kelnn",
    version=version(),
    description="Neural-network tasks for small cameras, on numpy arrays",
    license="Apache-2.0",
    python_requires=">=3.9",
    install_requires=["numpy"],
    packages=[],
    ext_modules=[Extension("kelnn._kelnn", sources=[])],
    cmdclass={"build_ext": BuildByCMake},
)
