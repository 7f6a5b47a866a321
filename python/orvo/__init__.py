"""orvo: the Python side of the render model.

This package tree is shared by the embedded interpreter (which runs the
scripted services the render model calls, such as the file texture's name
resolver) and by the ``import orvo`` extension.
"""
