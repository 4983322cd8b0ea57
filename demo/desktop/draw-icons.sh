#!/usr/bin/env bash
# Draws the pictures beside this script anew from orvane.svg: to be run after every change to it. Needs
# rsvg-convert and icotool (Debian's packages librsvg2-bin and icoutils).
set -euo pipefail
cd -- "$(dirname -- "${BASH_SOURCE[0]}")"

for size in 16 32 48 128 256; do
    rsvg-convert --width="$size" --height="$size" --output="orvane-$size.png" orvane.svg
done
# Windows reads a compressed picture in the largest size only.
icotool --create --output=orvane.ico orvane-16.png orvane-32.png orvane-48.png --raw=orvane-256.png
