#!/usr/bin/env bash
# The main job: installs what is missing, builds (build/) and runs the camera
# harness, build/tools/posteffect, on the bundled picture. Every effect of the
# table that exists runs through preview frames and a capture; the contact
# sheet posteffect-contact.png lands in the current folder and the timing
# table is printed. Arguments are passed on to posteffect (posteffect --help).
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
(
    cd "$root"
    scripts/install-deps.sh
    cmake --preset default
    cmake --build --preset default --target posteffect_tool
)
exec "$root/build/tools/posteffect" "$@"
