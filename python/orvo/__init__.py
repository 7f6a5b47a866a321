"""orvo: the Python side of the render model.

One package tree serves two users. Scripts ``import orvo`` to load, edit,
shade and render scenes through the compiled extension (``orvo._orvo``).
The embedded interpreter of the renderer imports the scripted services in
``orvo.app`` (the file texture's name resolver) and never needs the
extension, so it is loaded on first use of a name that lives in it.
"""

from .errors import SceneError

# The names the extension provides, loaded when first asked for.
_EXTENSION_NAMES = ("Scene", "Node", "ShadeBuffer", "node_types", "version")

__all__ = ["SceneError"] + list(_EXTENSION_NAMES)


def __getattr__(name):
    if name in _EXTENSION_NAMES:
        from . import _orvo

        value = getattr(_orvo, name)
        globals()[name] = value
        return value
    raise AttributeError("module 'orvo' has no attribute %r" % name)


def __dir__():
    return sorted(set(globals()) | set(_EXTENSION_NAMES))
