#!/bin/sh
# start_wine.sh WINE FOLDER: readies the Wine of the tests, whose files are in WINEPREFIX: once makes them, which takes a
# while, and then has the folder's ram and restored as drives X: and D:.
set -eu
wine=$1 folder=$2
if [ ! -e "$WINEPREFIX/ready" ]; then
  rm -rf "$WINEPREFIX"
  "$wine" wineboot --init
  "$wine" regedit /S "$(dirname "$0")/../data/wine.reg"
  touch "$WINEPREFIX/ready"
fi
ln -sfn "$folder/ram" "$WINEPREFIX/dosdevices/x:"
ln -sfn "$folder/restored" "$WINEPREFIX/dosdevices/d:"
