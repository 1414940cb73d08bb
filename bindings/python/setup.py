# SPDX-License-Identifier: GPL-2.0-only
"""What pyproject.toml cannot say: the version, which stands in the header, and the queue library, which ZELKQUEUE_LIBRARY
names and whose system the wheel is for."""
import os
import re
import shutil
from pathlib import Path

from setuptools import Distribution, setup
from setuptools.command.build_py import build_py
from wheel.bdist_wheel import bdist_wheel

HEADER = Path(__file__).resolve().parents[2] / "include" / "zelk" / "ZelkApi.h"
QUEUE = Path(os.environ.get("ZELKQUEUE_LIBRARY", ""))
SYSTEMS = {".so": "linux_x86_64", ".dll": "win_amd64"}


def version():
    """That of the library."""
    return re.search(r'^#define ZELK_VERSION_STRING "(.+)"', HEADER.read_text(encoding="utf-8"), re.M)[1]


class BuildWithQueue(build_py):
    """The package with the queue library."""

    def run(self):
        if QUEUE.suffix not in SYSTEMS or not QUEUE.is_file():
            raise SystemExit(f"setup.py: ZELKQUEUE_LIBRARY names no queue library: {QUEUE}")
        super().run()
        folder = Path(self.build_lib) / "zelkapi"
        shutil.copyfile(QUEUE, folder / ("zelkqueue.dll" if QUEUE.suffix == ".dll" else "libzelkqueue.so"))


class WithLibrary(Distribution):
    """It is of one system, though setuptools compiles nothing."""

    def has_ext_modules(self):
        return True


class WheelOfASystem(bdist_wheel):
    """Any Python 3 of that system."""

    def get_tag(self):
        return "py3", "none", SYSTEMS[QUEUE.suffix]


setup(version=version(), distclass=WithLibrary, cmdclass={"build_py": BuildWithQueue, "bdist_wheel": WheelOfASystem})
