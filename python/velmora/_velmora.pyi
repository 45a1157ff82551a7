"""Typed interface of the extension module (see the docstrings there)."""

import os
from typing import Any, Callable, Iterable, Optional, Sequence, Tuple, Union

import numpy as np
import numpy.typing as npt

PathLike = Union[str, "os.PathLike[str]"]
MeshTriple = Tuple[str, npt.ArrayLike, npt.ArrayLike]

__version__: str

class ExplodedView:
    @property
    def offsets(self) -> npt.NDArray[np.float64]:
        """Per group, its final offset from its assembled place: shape (groups, 3)."""
    @property
    def duration(self) -> float: ...
    @property
    def split_distance(self) -> float: ...
    def to_dict(self) -> dict[str, Any]:
        """The command-line tool's ``explode --report`` report."""
    def to_json(self) -> str: ...
    def save_glb(self, path: PathLike) -> None:
        """Writes the binary glTF; the file appears only when complete."""
    def save_html(self, path: PathLike) -> None:
        """Writes the page ``explode --html`` writes; ValueError "built without the viewer"
        in builds without it."""

class Removal:
    @property
    def instructions(self) -> list[dict[str, Any]]:
        """One step each: ``step``, ``groups``, ``parts`` (what moves), ``direction``, ``target``."""
    @property
    def base(self) -> list[str]:
        """The parts that stay in place."""
    @property
    def text(self) -> str:
        """The numbered steps as ``velmora remove`` prints them."""
    def to_dict(self) -> dict[str, Any]:
        """The command-line tool's ``remove -o`` report."""
    def to_json(self) -> str: ...
    def save_glb(self, path: PathLike) -> None:
        """The steps as an animated binary glTF (``remove --gltf``)."""
    def save_html(self, path: PathLike) -> None:
        """The steps as a self-contained page (``remove --html``); ValueError
        "built without the viewer" in builds without it."""

class Plan:
    @property
    def contacts(self) -> list[dict[str, Any]]:
        """The contacts of the report: groups, names, point, directions, direction ids."""
    @property
    def directions(self) -> npt.NDArray[np.float64]:
        """The direction set, one unit row per line: shape (lines, 3)."""
    @property
    def hierarchy(self) -> list[dict[str, Any]]:
        """The hierarchy's nodes: id, parent, groups, names, split."""
    def to_dict(self) -> dict[str, Any]:
        """The command-line tool's ``plan`` report."""
    def to_json(self) -> str:
        """That report as the command-line tool writes it, byte for byte."""
    def explode(self, *, policy: int = 2, play_style: int = 1, split_distance: float = 0.0,
                static: bool = False, fix: Optional[str] = None, speed: float = 1.0,
                compress: bool = True, lines: bool = False, crease_angle: float = 30.0,
                units: str = "mm") -> ExplodedView:
        """The view ``velmora explode`` makes with the flags of the same names."""
    def remove(self, part: str, *, fix: Optional[str] = None, speed: float = 1.0,
               compress: bool = True, lines: bool = False, crease_angle: float = 30.0,
               units: str = "mm") -> Removal:
        """Taking out the named part, as ``velmora remove`` plans it."""

class Assembly:
    @staticmethod
    def from_meshes(meshes: Iterable[Union[MeshTriple, Any]]) -> Assembly:
        """One part per mesh; raises ValueError on a bad shape, dtype or index."""
    @property
    def parts(self) -> list[str]: ...
    @property
    def units(self) -> str: ...
    @property
    def warnings(self) -> list[str]: ...
    def to_dict(self) -> dict[str, Any]: ...
    def plan(self, *, threads: int = 0, distant: bool = True,
             keep_together: Sequence[Sequence[str]] = ..., angle_tolerance: float = 5.0,
             progress: Optional[Callable[[str, float], None]] = None,
             fix: Optional[str] = None, verify: bool = True, normalise_scale: bool = True,
             free_zero_area: bool = True) -> Plan:
        """``fix``: the part the plan's views keep still (default: the largest). ``verify``:
        sweep every split and re-plan colliding ones (the tool's default)."""

viewer_built_in: bool

def load(paths: Union[PathLike, Iterable[PathLike]], group_by: str = "mesh",
         deflection: float = 0.0, angular_deflection: float = 0.0) -> Assembly:
    """Reads files or folders into one assembly; OSError when a path does not exist,
    ValueError on other bad input."""

def demo(name: str) -> Assembly:
    """A built-in sample assembly, as ``velmora demo NAME`` plans it."""

def demo_names() -> list[str]: ...

def set_log(callback: Optional[Callable[[str], None]]) -> None:
    """Routes the library's own lines to ``callback(line)``; None drops them."""
