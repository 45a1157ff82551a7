"""Plans how a mechanical assembly comes apart from its part meshes.

>>> import velmora
>>> plan = velmora.load("pins.glb").plan(threads=2)
>>> plan.to_dict()["hierarchy"]["nodes"][0]["split"]

Assemblies come from files (:func:`load`) or numpy arrays
(:meth:`Assembly.from_meshes`); a :class:`Plan` gives the contacts, the
direction set, the disassembly hierarchy, exploded views and removal steps.
Every ``to_dict()`` is the report the ``velmora`` command-line tool writes.
"""

from ._velmora import (Assembly, ExplodedView, Plan, Removal, __version__, demo, demo_names, load, set_log,
                       viewer_built_in)

__all__ = ["Assembly", "ExplodedView", "Plan", "Removal", "__version__", "demo", "demo_names", "load", "set_log",
           "viewer_built_in"]
