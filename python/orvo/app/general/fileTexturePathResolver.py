"""Turns a file texture's name into a pattern of frame and UV tile tokens,
finds the files a pattern stands for, and tells where each tile lies in UV.

The render model calls three functions:

``getFilePatternString(name, useFrameExtension, uvTilingMode)``
    The pattern for a file name.
``findAllFilesForPattern(pattern, frame)``
    The existing files of a pattern at a frame (``None`` without frames),
    sorted by name.
``computeUVForFiles(files, pattern)``
    For each file the (u, v) of the lower left corner of its tile.

Tokens, written in angle brackets:

``<f>``
    the frame number, unpadded (``name.7.png``);
``<fN>``
    the frame number padded with zeros to N digits (``<f4>``: ``name.0007.png``);
``<UDIM>``
    the UDIM tile number, 1001 + u + 10 v (``name.1012.png`` is u 1, v 1);
``<u>``, ``<v>``
    0-based tile indices (``name_u0_v0.png``);
``<U>``, ``<V>``
    1-based tile indices (``name_u1_v1.png`` is the first tile).

A name may already hold tokens; otherwise the pattern is derived from a name
that names any one existing tile or frame: the last numeric field before the
extension is the frame, and the tile field (``.1001``, ``_u0_v0``) comes before
it.
"""

import os
import re

# uvTilingMode values.
OFF = 0
ZERO_BASED = 1
ONE_BASED = 2
UDIM = 3
EXPLICIT = 4

_FRAME_TOKEN = re.compile(r"<f(\d*)>")
_TILE_TOKENS = ("<UDIM>", "<u>", "<v>", "<U>", "<V>")


def _splitExtension(name):
    """(stem, extension) with the extension's dot; none when the last
    path component has no dot."""
    head, tail = os.path.split(name)
    dot = tail.rfind(".")
    if dot <= 0:
        return name, ""
    return os.path.join(head, tail[:dot]) if head else tail[:dot], tail[dot:]


def _frameToken(digits):
    # A field written with leading zeros keeps its width; any other is
    # taken as an unpadded number.
    if len(digits) > 1 and digits.startswith("0"):
        return "<f%d>" % len(digits)
    return "<f>"


def hasTokens(name):
    return bool(_FRAME_TOKEN.search(name)) or any(t in name for t in _TILE_TOKENS)


def getFilePatternString(name, useFrameExtension, uvTilingMode):
    """The pattern of tokens for a file texture name."""
    name = str(name)
    uvTilingMode = int(uvTilingMode)
    useFrameExtension = bool(useFrameExtension)
    if not name or hasTokens(name):
        return name
    stem, extension = _splitExtension(name)
    if useFrameExtension:
        match = re.search(r"\.(\d+)$", stem)
        if match:
            stem = stem[: match.start()] + "." + _frameToken(match.group(1))
            frameSuffix = ""
        else:
            frameSuffix = ".<f>"
        # The tile field stands before the frame.
        frameAt = stem.rfind(".<f") if not frameSuffix else len(stem)
        tileStem, rest = stem[:frameAt], stem[frameAt:] + frameSuffix
    else:
        tileStem, rest = stem, ""
    if uvTilingMode == UDIM:
        match = re.search(r"\.(\d{4})$", tileStem)
        if match:
            tileStem = tileStem[: match.start()] + ".<UDIM>"
        else:
            tileStem += ".<UDIM>"
    elif uvTilingMode in (ZERO_BASED, ONE_BASED):
        u, v = ("<u>", "<v>") if uvTilingMode == ZERO_BASED else ("<U>", "<V>")
        match = re.search(r"_u(\d+)_v(\d+)$", tileStem)
        if match:
            tileStem = tileStem[: match.start()] + "_u" + u + "_v" + v
        else:
            tileStem += "_u" + u + "_v" + v
    return tileStem + rest + extension


def _substituteFrame(pattern, frame):
    if frame is None or str(frame) == "None":
        return pattern
    frame = int(frame)

    def replace(match):
        width = match.group(1)
        text = str(abs(frame)).zfill(int(width)) if width else str(abs(frame))
        return ("-" if frame < 0 else "") + text

    return _FRAME_TOKEN.sub(replace, pattern)


def _tileRegex(pattern):
    """A regular expression over whole file names with a group per tile
    token, and the token names in group order."""
    parts = re.split(r"(<UDIM>|<u>|<v>|<U>|<V>|<f\d*>)", pattern)
    regex, names = "", []
    for part in parts:
        if part == "<UDIM>":
            regex += r"(1\d{3})"
            names.append("UDIM")
        elif part in ("<u>", "<v>", "<U>", "<V>"):
            regex += r"(\d+)"
            names.append(part[1:-1])
        elif part.startswith("<f") and part.endswith(">"):
            regex += r"(-?\d+)"
            names.append("f")
        else:
            regex += re.escape(part)
    return re.compile(regex + r"\Z"), names


def findAllFilesForPattern(pattern, frame):
    """Existing files of the pattern at the frame, sorted by name."""
    pattern = _substituteFrame(str(pattern), frame)
    if not pattern:
        return []
    folder, base = os.path.split(pattern)
    if not hasTokens(base):
        return [pattern] if os.path.isfile(pattern) else []
    regex, _ = _tileRegex(base)
    try:
        entries = os.listdir(folder or ".")
    except OSError:
        return []
    found = [os.path.join(folder, e) if folder else e for e in entries if regex.match(e)]
    return sorted(f for f in found if os.path.isfile(f))


def _tileOf(values, names):
    u = v = 0
    for value, name in zip(values, names):
        number = int(value)
        if name == "UDIM":
            u, v = (number - 1001) % 10, (number - 1001) // 10
        elif name == "u":
            u = number
        elif name == "v":
            v = number
        elif name == "U":
            u = number - 1
        elif name == "V":
            v = number - 1
    return u, v


def computeUVForFiles(files, pattern):
    """For each file, the (u, v) of its tile's lower left corner; (0, 0) for a
    file the pattern does not describe."""
    regex, names = _tileRegex(os.path.basename(str(pattern)))
    result = []
    for name in files:
        match = regex.match(os.path.basename(str(name)))
        result.append(_tileOf(match.groups(), names) if match else (0, 0))
    return result
