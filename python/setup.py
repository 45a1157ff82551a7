# The wheel build: scikit-build runs the project's CMake build from the
# checkout's root with the libraries linked into the extension module.
import sys

from skbuild import setup

setup(
    packages=["velmora"],
    package_data={"velmora": ["py.typed", "*.pyi"]},
    cmake_source_dir="..",
    cmake_args=[
        f"-DPython3_EXECUTABLE={sys.executable}",
        "-DVELMORA_BUILD_TESTS=OFF",
        "-DVELMORA_BUILD_BENCH=OFF",
        "-DVELMORA_BUILD_EXAMPLES=OFF",
        "-DVELMORA_BUILD_PYTHON=ON",
        "-DVELMORA_WARNINGS_AS_ERRORS=OFF",
    ],
    cmake_install_target="install",
)
