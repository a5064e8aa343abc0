#!/usr/bin/env bash
# The main job: installs what is missing, builds (build/) and runs the camera
# harness, build/tools/posteffect, on the bundled picture. Every effect of the
# table runs through preview frames and a capture; the outputs (the contact
# sheet posteffect-contact.png among them) land in build/run/ unless --out
# says otherwise, and the timing table is printed. Arguments are passed on to
# posteffect (posteffect --help).
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
(
    cd "$root"
    scripts/install-deps.sh
    cmake --preset default
    cmake --build --preset default --target posteffect_tool
)
args=("$@")
if [[ " $* " != *" --out "* ]]; then
    mkdir -p "$root/build/run"
    args=(--out "$root/build/run" "${args[@]}")
fi
exec "$root/build/tools/posteffect" "${args[@]}"
