"""Builds the wheel with the shared library in it; see build-wheel."""

import os
import re
import shutil
from pathlib import Path

from setuptools import Distribution, setup
from setuptools.command.build_py import build_py
from wheel.bdist_wheel import bdist_wheel

# build-wheel copies this directory, and says where the rest is.
PROJECT = Path(os.environ["KIVRESOURCE_SOURCE"])
LIBRARY = Path(os.environ["KIVRESOURCE_LIBRARY"])
BUNDLE = "InnerAdResources.bundle"


def version():
    text = (PROJECT / "CMakeLists.txt").read_text(encoding="utf-8")
    return re.search(r"^project\(KivResource VERSION ([0-9.]+)", text, re.MULTILINE)[1]


class BuildWithLibrary(build_py):
    def run(self):
        super().run()
        package = Path(self.build_lib) / "kivresource"
        # The name that the package looks for; the file behind it has a longer one.
        shutil.copy(LIBRARY.resolve(), package / "libkivsession.so.1")
        shutil.copytree(PROJECT / BUNDLE, package / BUNDLE, dirs_exist_ok=True)


class PlatformDistribution(Distribution):
    """Belongs into the directory for what is of one platform, although nothing is compiled here."""

    def has_ext_modules(self):
        return True


class PlatformWheel(bdist_wheel):
    """For any Python 3 of this platform: the library does not depend on Python."""

    def get_tag(self):
        return "py3", "none", super().get_tag()[2]


setup(
    version=version(),
    distclass=PlatformDistribution,
    cmdclass={"build_py": BuildWithLibrary, "bdist_wheel": PlatformWheel},
)
