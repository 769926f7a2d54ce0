#!/usr/bin/env bash
# Runs a command on the newest recording of one camera in a store:
#   on-recording.sh STORE CAMERA COMMAND... ({} in COMMAND stands for the file)
# CAMERA is the start of the file name, e.g. b0-cam2. Fails when the store holds none.
set -euo pipefail
store=$1 camera=$2
shift 2
file=$(find "$store" -name "$camera-*.zn" -printf '%T@ %p\n' | sort -n | tail -n 1 | cut -d' ' -f2-)
if [ -z "$file" ]; then
  echo "no recording of $camera in $store" >&2
  exit 1
fi
args=()
for arg in "$@"; do
  args+=("${arg//\{\}/$file}")
done
exec "${args[@]}"
