"""Has CMake build the module and puts it, with the library, into the wheel.

The build folder is build/python, or the one that VOALGO_BUILD names: a finished build is then taken as it is. Needs a
C++20 compiler, CMake, Ninja, and the Debian packages libtbb-dev, liblapack-dev, libblas-dev, libassimp-dev, zlib1g-dev,
nlohmann-json3-dev, pybind11-dev and python3-dev, or their counterparts; at run time libtbb and libassimp.
"""

import os
import pathlib
import re
import shutil
import subprocess
import sys

from setuptools import Extension, setup
from setuptools.command.build_ext import build_ext

ROOT = pathlib.Path(__file__).resolve().parent
VERSION = re.search(r'VOALGO_VERSION "(.*)"', (ROOT / "include/VoAlgorithms/version.h").read_text()).group(1)


def run(*command):
    subprocess.run([str(part) for part in command], check=True, cwd=ROOT)


class CMakeBuild(build_ext):
    def run(self):
        folder = ROOT / os.environ.get("VOALGO_BUILD", "build/python")
        if "VOALGO_BUILD" not in os.environ:
            run("cmake", "--preset", "package", "-B", folder, "-DVOALGO_TOOLS=OFF", f"-DPython_EXECUTABLE={sys.executable}")
        run("cmake", "--build", folder, "--target", "voalgo_python", "--parallel", os.cpu_count() or 1)
        target = pathlib.Path(self.build_lib) / "voalgorithms"
        if self.editable_mode:
            target = ROOT / "python/voalgorithms"
        target.mkdir(parents=True, exist_ok=True)
        stage = pathlib.Path(self.build_temp).resolve()
        for component in ("python", "runtime"):
            run("cmake", "--install", folder, "--component", component, "--prefix", stage)
        # The module looks for the library beside itself first.
        libraries = [path for path in stage.rglob("libVoAlgorithms.so.*") if path.is_symlink()]
        for path in [*stage.rglob("voalgorithms/_*.so"), *libraries]:
            shutil.copy(path, target / path.name)

    def get_outputs(self):
        return [str(path) for path in pathlib.Path(self.build_lib).glob("voalgorithms/*.so*")]


setup(version=VERSION, ext_modules=[Extension("voalgorithms._core", [])], cmdclass={"build_ext": CMakeBuild})
