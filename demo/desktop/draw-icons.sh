#!/usr/bin/env bash
# Draws the pictures beside this script anew from orvane.svg, and those of the style sheet from the drawings
# beside it: to be run after every change to one. Needs rsvg-convert and icotool (Debian's packages
# librsvg2-bin and icoutils).
set -euo pipefail
cd -- "$(dirname -- "${BASH_SOURCE[0]}")"

for size in 16 32 48 128 256; do
    rsvg-convert --width="$size" --height="$size" --output="orvane-$size.png" orvane.svg
done
# Windows reads a compressed picture in the largest size only.
icotool --create --output=orvane.ico orvane-16.png orvane-32.png orvane-48.png --raw=orvane-256.png

# Qt takes the picture of twice the size on screens of high density.
for drawing in ../styles/*.svg; do
    rsvg-convert --output="${drawing%.svg}.png" "$drawing"
    rsvg-convert --zoom=2 --output="${drawing%.svg}@2x.png" "$drawing"
done
