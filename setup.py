"""Builds the compiled part of the Python package with CMake; pyproject.toml says all the rest.

The wheel carries the module and libTorvo beside it, which finds it there. CMAKE_ARGS is handed on to CMake, and
CMAKE_BUILD_PARALLEL_LEVEL says how many compilers run at once, by default one for each core. TORVO_BUILD names a
folder that is configured with TORVO_BUILD_PYTHON=ON already: it is used as it is.
"""

import os
import shlex
import subprocess
import sys
from pathlib import Path

from setuptools import Extension, setup
from setuptools.command.build_ext import build_ext

ROOT = Path(__file__).resolve().parent


class BuildWithCMake(build_ext):
    """One extension, which CMake builds and installs into the package."""

    def build_extension(self, extension: Extension) -> None:
        # The last folder of the path is the package, into which the install step puts its files.
        package = Path(self.get_ext_fullpath(extension.name)).resolve().parent
        build = Path(os.environ.get("TORVO_BUILD") or Path(self.build_temp) / "cmake").resolve()
        if "TORVO_BUILD" not in os.environ:
            self.configure(build)
        # A number must be there: without one, make starts as many compilers as there are files.
        jobs = os.environ.get("CMAKE_BUILD_PARALLEL_LEVEL") or str(os.cpu_count() or 1)
        subprocess.run(["cmake", "--build", str(build), "--parallel", jobs, "--target", "_torvo"], check=True)
        subprocess.run(["cmake", "--install", str(build), "--component", "python", "--prefix", str(package.parent)],
                       check=True)

    @staticmethod
    def configure(build: Path) -> None:
        configure = ["cmake", "-S", str(ROOT), "-B", str(build), "-DCMAKE_BUILD_TYPE=Release",
                     "-DTORVO_BUILD_PYTHON=ON", f"-DTORVO_PYTHON={sys.executable}"]
        configure += [f"-DTORVO_BUILD_{part}=OFF" for part in ("TESTS", "BENCH", "EXAMPLES")]
        subprocess.run(configure + shlex.split(os.environ.get("CMAKE_ARGS", "")), check=True)


setup(ext_modules=[Extension("torvo._torvo", sources=[])], cmdclass={"build_ext": BuildWithCMake})
