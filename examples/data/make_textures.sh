#!/usr/bin/env bash
# Makes the textures of examples/textured.qsl with oiiotool (Debian's
# openimageio-tools). The PNGs are committed; run this again only to change
# them. Everything here is drawn from patterns: no outside images.
set -euo pipefail
cd "$(dirname "$0")"

# The crate: planks of two browns in a dark frame, 8-bit sRGB, with an
# alpha channel that cuts a square hole in the middle of each face.
dark=0.18,0.1,0.04,1
oiiotool --pattern checker:width=16:height=128:color1=0.62,0.42,0.2,1:color2=0.5,0.32,0.14,1 128x128 4 \
    --fill:color=$dark 128x8+0+0 --fill:color=$dark 128x8+0+120 \
    --fill:color=$dark 8x128+0+0 --fill:color=$dark 8x128+120+0 \
    --fill:color=$dark 44x44+42+42 --fill:color=0,0,0,0 36x36+46+46 \
    -d uint8 -o crate.png

# The floor as four UDIM tiles (1001 + u + 10 v), a gradient of its own
# colour each, so the tile boundaries show.
tile() {
    oiiotool --pattern fill:top=$2:bottom=$3 64x64 3 -d uint8 -o "floor.$1.png"
}
tile 1001 0.8,0.3,0.2 0.4,0.1,0.05
tile 1002 0.2,0.7,0.3 0.05,0.35,0.1
tile 1011 0.2,0.35,0.8 0.05,0.1,0.4
tile 1012 0.85,0.8,0.3 0.45,0.4,0.05
