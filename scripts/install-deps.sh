#!/usr/bin/env bash
# Installs the Debian packages that building, testing and benchmarking need,
# skipping the ones already present. Run as root on Debian 12.
set -euo pipefail

packages=(
    # toolchain
    cmake g++ make pkg-config
    # EGL and GLES 2 over Mesa (llvmpipe runs them without a GPU)
    libegl-dev libgles-dev libegl1 libgles2 libegl-mesa0 libgl1-mesa-dri
    # the Android utility classes, native handles and log
    android-libutils-dev android-libcutils-dev android-liblog-dev
    # tests and benchmarks
    googletest libgtest-dev libgmock-dev libbenchmark-dev libyuv-dev
    # the AArch64 build of the converters, run under emulation
    g++-aarch64-linux-gnu qemu-user
    # image files for the tools
    libjpeg62-turbo-dev libpng-dev
)

missing=()
for p in "${packages[@]}"; do
    if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed'; then
        missing+=("$p")
    fi
done

if [ ${#missing[@]} -eq 0 ]; then
    echo "install-deps: all ${#packages[@]} packages present"
    exit 0
fi

if [ "$(id -u)" -ne 0 ]; then
    echo "install-deps: missing packages (${missing[*]}); run this script as root" >&2
    exit 1
fi

echo "install-deps: installing ${missing[*]}"
export DEBIAN_FRONTEND=noninteractive
apt-get update -qq
apt-get install -y -qq --no-install-recommends "${missing[@]}"
