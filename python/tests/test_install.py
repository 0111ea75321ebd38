import os
import shutil
import subprocess
import sys
from pathlib import Path

import pytest

from conftest import SAMPLES

SOURCE = Path(os.environ.get("KZ_ID3_SOURCE", Path(__file__).resolve().parents[2]))
BUILD = os.environ.get("KZ_ID3_BUILD")
# Where the kit is found otherwise: none of it may help an installed package.
CLEAN = {name: value for name, value in os.environ.items()
         if name not in ("KZ_HOST_LIBRARY", "KZ_ID3_MODULE", "PYTHONPATH")}
READ = "import kz_id3, sys; print(kz_id3.read(sys.argv[1])['TIT2'][0], kz_id3.kit_version())"


def run(*command, env=CLEAN, cwd="/"):
    done = subprocess.run([str(part) for part in command], env=env, cwd=cwd,
                          capture_output=True, text=True)
    assert done.returncode == 0, done.stdout + done.stderr
    return done.stdout


def copy_of_checkout(target):
    target.mkdir()
    archive = subprocess.run(["git", "archive", "HEAD"], cwd=SOURCE, capture_output=True,
                             check=True).stdout
    subprocess.run(["tar", "-x", "-C", target], input=archive, check=True)
    return sorted(str(path) for path in target.rglob("*"))


def venv(path, *options):
    run(sys.executable, "-m", "venv", *options, path)
    return path / "bin" / "python"


def test_pip_install_and_a_wheel_that_outlives_its_source(tmp_path):
    source = tmp_path / "source"
    files = copy_of_checkout(source)
    python = venv(tmp_path / "one", "--system-site-packages")
    run(python, "-m", "pip", "install", "-q", "--no-build-isolation", source / "python")
    assert run(python, "-c", READ, SAMPLES[-1]) == "Evening Song 2.0.0\n"
    run(python, "-m", "pip", "wheel", "-q", "--no-build-isolation", "--no-deps", "-w",
        tmp_path / "wheels", source / "python")
    assert sorted(str(path) for path in source.rglob("*")) == files  # no build products
    shutil.rmtree(source)
    wheel, = (tmp_path / "wheels").iterdir()
    assert wheel.name.startswith("kz_id3-2.0.0-py3-none-linux_")
    other = venv(tmp_path / "two")
    run(other, "-m", "pip", "install", "-q", "--no-index", wheel)
    assert run(other, "-c", READ, SAMPLES[-1]) == "Evening Song 2.0.0\n"


@pytest.mark.skipif(BUILD is None, reason="needs the build tree to install the kit from")
def test_pure_python_install_over_a_kit_installed_system_wide(tmp_path):
    run("cmake", "--install", BUILD, "--prefix", tmp_path / "usr")
    pkgconfig, = (tmp_path / "usr").rglob("pkgconfig/kz_host.pc")
    python = venv(tmp_path / "pure", "--system-site-packages")
    run(python, "-m", "pip", "install", "-q", "--no-build-isolation", SOURCE / "python",
        env=dict(CLEAN, KZ_ID3_PURE_PYTHON="1"))
    run(python, "-c", "import kz_id3, os; assert not os.path.exists(kz_id3._library.BUNDLED)")
    found = run(python, "-c", READ, SAMPLES[-1],
                env=dict(CLEAN, PKG_CONFIG_PATH=str(pkgconfig.parent)))
    assert found == "Evening Song 2.0.0\n"
