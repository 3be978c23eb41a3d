# SPDX-License-Identifier: Apache-2.0
"""Builds the Python module by CMake, which installs it and the library into the wheel."""
import os
import re
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
        build = Path(self.build_temp).resolve()
        into = Path(self.get_ext_fullpath(extension.name)).resolve().parent.parent
        subprocess.run(
            ["cmake", "-S", str(ROOT), "-B", str(build), "-G", "Ninja", "-DCMAKE_BUILD_TYPE=Release",
             "-DKEL_NN_PYTHON=ON", "-DKEL_NN_TOOLS=OFF", f"-DPython_EXECUTABLE={sys.executable}",
             "-DKEL_NN_PYTHON_DIR=.", "-DCMAKE_INSTALL_LIBDIR=kelnn", "-DCMAKE_INSTALL_DOCDIR=kelnn"], check=True)
        jobs = ["--parallel", str(self.parallel or os.cpu_count() or 1)]
        subprocess.run(["cmake", "--build", str(build), "--target", "kelnn_python", *jobs], check=True)
        for component in "library", "python":
            subprocess.run(["cmake", "--install", str(build), "--component", component, "--prefix", str(into)], check=True)


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
