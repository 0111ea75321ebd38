"""The optional C part of kz_id3, kz_id3._batch (the rest is in pyproject.toml).

Without a C compiler and Python's headers (Debian's python3-dev) the build
goes on without it, and read_many reads file by file through ctypes.
"""

from setuptools import Extension, setup

setup(ext_modules=[Extension("kz_id3._batch", ["kz_id3/_batch.c"], optional=True)])
