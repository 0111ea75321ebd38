"""Builds the native part of kz_id3 into the package (the rest of the
metadata is in pyproject.toml).

`pip install ./python` configures and builds, with CMake, the host kit
libkz_host.so, the module libkz_id3.so and libkz_sys.so from this
checkout, and puts them into the package as the kit looks for them:
kz_id3/_native/libkz_host.so, and kz_id3/_native/kz_id3/ holding the
module and libkz_sys.so.  Needs cmake and a C++ compiler (g++).  Nothing
is written into the source tree: CMake and setuptools build in a temporary
directory.

With the environment variable KZ_ID3_PURE_PYTHON=1 only the Python files
are installed (a wheel for any platform), for machines without a compiler
where the kit is installed system-wide (the .deb, or cmake --install).
"""

import atexit
import os
import shutil
import subprocess
import sys
import sysconfig
import tempfile
from pathlib import Path

from setuptools import Distribution, setup
from setuptools.command.build_py import build_py

PURE = os.environ.get("KZ_ID3_PURE_PYTHON", "") not in ("", "0")
ROOT = Path(__file__).resolve().parent.parent
NATIVE = "_native"

# Every build product goes here, not into the source tree.
SCRATCH = tempfile.mkdtemp(prefix="kz_id3-build.")
atexit.register(shutil.rmtree, SCRATCH, ignore_errors=True)


def run(command):
    print(" ".join(command), flush=True)
    subprocess.run(command, check=True)


class BuildNative(build_py):
    """build_py, then the kit, the module and libkz_sys.so built with CMake
    and copied into the package."""

    def run(self):
        super().run()
        if PURE:
            return
        missing = [tool for tool in ("cmake", "g++") if shutil.which(tool) is None]
        if missing:
            sys.exit("kz_id3: building the kit and the module needs " + " and ".join(missing) +
                     " (Debian: apt-get install cmake g++); without a compiler, install the "
                     "kit system-wide and then only the Python files: "
                     "KZ_ID3_PURE_PYTHON=1 pip install --no-build-isolation ./python")
        if not (ROOT / "CMakeLists.txt").is_file() or not (ROOT / "include" / "kz_host.h").is_file():
            sys.exit(f"kz_id3: {ROOT} is not the libkz_id3 source tree: pip builds the native "
                     f"part from the checkout's python/ directory")
        build_dir = Path(SCRATCH) / "cmake"
        run(["cmake", "-S", str(ROOT), "-B", str(build_dir), "-DCMAKE_BUILD_TYPE=Release",
             "-DKZ_ID3_BUILD_TESTS=OFF", "-DKZ_ID3_BUILD_BENCH=OFF",
             "-DKZ_ID3_BUILD_SAMPLES=OFF", "-DKZ_ID3_INSTALL=OFF"])
        run(["cmake", "--build", str(build_dir), "--target", "kz_host",
             f"-j{os.cpu_count() or 1}"])
        target = Path(self.build_lib) / "kz_id3" / NATIVE
        (target / "kz_id3").mkdir(parents=True, exist_ok=True)
        built = build_dir / "lib"
        shutil.copyfile(built / "libkz_host.so", target / "libkz_host.so")
        for name in ("libkz_id3.so", "libkz_sys.so"):
            shutil.copyfile(built / "kz_id3" / name, target / "kz_id3" / name)


class NativeDistribution(Distribution):
    """A distribution with native libraries: a wheel for this platform."""

    def has_ext_modules(self):
        return not PURE


commands = {"build_py": BuildNative}
try:
    from wheel.bdist_wheel import bdist_wheel
except ImportError:
    bdist_wheel = None
if bdist_wheel is not None:
    class PlatformWheel(bdist_wheel):
        """Tagged for this platform but any Python 3: the libraries are
        loaded through ctypes, not as extension modules."""

        def get_tag(self):
            if PURE:
                return super().get_tag()
            return "py3", "none", sysconfig.get_platform().replace("-", "_").replace(".", "_")

    commands["bdist_wheel"] = PlatformWheel

setup(
    distclass=NativeDistribution,
    cmdclass=commands,
    options={"build": {"build_base": os.path.join(SCRATCH, "build")},
             "egg_info": {"egg_base": SCRATCH}},
)
