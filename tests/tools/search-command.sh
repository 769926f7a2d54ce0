#!/usr/bin/env bash
# zndvr search and zndvr info end to end on a store that zndvr record made today: every
# camera's files are found, filters narrow the list, info reads a found file's blocks and
# frames, and bad input is refused with its reason.
set -euo pipefail
zndvr=$1
store=$2
expect() { grep -q -- "$1" <<<"$2" || { echo "expected '$1' in:"; echo "$2"; exit 1; }; }
refused() { if out=$("$@" 2>&1); then echo "accepted: $*"; exit 1; fi; echo "$out"; }

all=$("$zndvr" search -d "$store")
expect "b0-cam0-" "$all"
expect "^[1-9][0-9]* recording(s)" "$all"
# The store keeps the files of earlier runs too: camera 0's are some of them, and only its.
camera0=$("$zndvr" search -d "$store" --camera "camera 0" --board "board 0" --disk 1)
expect "^[1-9][0-9]* recording(s)" "$camera0"
if grep -q -- "-cam[1-9]" <<<"$camera0"; then echo "other cameras in:"; echo "$camera0"; exit 1; fi
[ "$(tail -1 <<<"$camera0" | cut -d' ' -f1)" -lt "$(tail -1 <<<"$all" | cut -d' ' -f1)" ]
expect "^0 recording(s)" "$("$zndvr" search -d "$store" --camera "Camera 0")"
expect "^0 recording(s)" "$("$zndvr" search -d "$store" --remote)"
json=$("$zndvr" search -d "$store" --json --from "$(date +%Y-%m-%d)")
expect '"count": [1-9]' "$json"
file=$(grep -o '"path": "[^"]*cam0[^"]*"' <<<"$json" | head -1 | cut -d'"' -f4)

info=$("$zndvr" info "$file")
expect "version     0x1000" "$info"
expect "camera      0 of board 0" "$info"
expect "       0  offset " "$info"
expect "frames      [1-9][0-9]*: [1-9][0-9]* key" "$info"
expect '"frames": {"count": [1-9]' "$("$zndvr" info "$file" --json)"

expect "is no recording" "$(refused "$zndvr" info "$0")"
expect "can't be opened" "$(refused "$zndvr" info "$store/none.zn")"
expect "'2026-02-30' is no local day" "$(refused "$zndvr" search -d "$store" --date 2026-02-30)"
expect "give one of --date" "$(refused "$zndvr" search -d "$store" --date 2026-02-03 --at 2026-02-03)"
expect "the store has no disk 9" "$(refused "$zndvr" search -d "$store" --disk 9)"
expect "no frame size" "$(refused "$zndvr" search -d "$store" --size 321x240)"
expect "no store here" "$(refused "$zndvr" search -d "$store/missing")"
