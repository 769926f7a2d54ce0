#!/usr/bin/env bash
# zndvr disks end to end: a quota disk is added, changed, listed, the default disk taken
# out, and a second disk on the same volume refused with its reason.
set -euo pipefail
zndvr=$1
store=$2
rm -rf "$store"
mkdir -p "$store"
trap 'rm -rf "$store"' EXIT
expect() { grep -q -- "$1" <<<"$2" || { echo "expected '$1' in:"; echo "$2"; exit 1; }; }

expect "added disk 2: Front($store/q1/)" "$("$zndvr" disks -d "$store/s" add "$store/q1" --quota 60 --reserved 1 --name Front)"
expect "changed disk 2" "$("$zndvr" disks -d "$store/s" change "$store/q1" --no-recycle)"
listing=$("$zndvr" disks -d "$store/s")
expect "60 MB (quota volume)" "$listing"
expect "recycling       off" "$listing"
expect "low below 51 MB" "$listing"
expect "removed disk 1" "$("$zndvr" disks -d "$store/s" remove 1)"
expect "disk 1 (work disk): Front" "$("$zndvr" disks -d "$store/s")"
if refusal=$("$zndvr" disks -d "$store/s" add "$store/q1/inner" 2>&1); then exit 1; fi
expect "lies on the volume of disk 1; a store keeps one disk per volume" "$refusal"
if refusal=$("$zndvr" disks -d "$store/s" remove 1 2>&1); then exit 1; fi
expect "the store's only disk" "$refusal"
