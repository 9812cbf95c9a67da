#!/bin/sh
# start_wine.sh WINE WINESERVER FOLDER: readies the Wine of the tests, whose files are in WINEPREFIX: once makes them, which
# takes a while, and then has the folder's ram and restored as drives X: and D:.
set -eu
wine=$1 wineserver=$2 folder=$3
if [ ! -e "$WINEPREFIX/ready" ]; then
  rm -rf "$WINEPREFIX"
  "$wine" wineboot --init
  "$wine" regedit /S "$(dirname "$0")/../data/wine.reg"
  "$wineserver" -w # until all of that has ended, and the server with it
  touch "$WINEPREFIX/ready"
fi
ln -sfn "$folder/ram" "$WINEPREFIX/dosdevices/x:"
ln -sfn "$folder/restored" "$WINEPREFIX/dosdevices/d:"
# By itself Wine's server ends when no program has run for some seconds, and a program that starts just then dies with it:
# on a busy machine, any. This one stays until it is ended.
"$wineserver" -p </dev/null >/dev/null 2>&1 || true # when one runs already
