"""Plans how a mechanical assembly comes apart from its part meshes.

>>> import velmora
>>> plan = velmora.load("pins.glb").plan(threads=2)
>>> plan.to_dict()["hierarchy"]["nodes"][0]["split"]
>>> plan.explode(fix="sides#1:5:2:4:3", lines=True).save_html("pins.html")
>>> print(plan.remove("dowel#1:9:6:8:7").text)

Assemblies come from files (:func:`load`) or numpy arrays
(:meth:`Assembly.from_meshes`); a :class:`Plan` gives the contacts, the
direction set, the disassembly hierarchy, exploded views and removals (the
instructions a person follows). Options and defaults are the ``velmora``
command-line tool's; every ``to_dict()`` is the report it writes, and
``save_glb``/``save_html`` write its files.
"""

from ._velmora import (Assembly, ExplodedView, Plan, Removal, __version__, demo, demo_names, load, set_log,
                       viewer_built_in)

__all__ = ["Assembly", "ExplodedView", "Plan", "Removal", "__version__", "demo", "demo_names", "load", "set_log",
           "viewer_built_in"]
