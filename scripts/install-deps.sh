#!/usr/bin/env bash
# Installs the Debian packages the project builds and tests with.
# Idempotent: packages already present are skipped, and apt is only
# touched when something is missing.
set -euo pipefail

PACKAGES=(
  build-essential cmake pkg-config
  liblua5.1-0-dev libluajit-5.1-dev
  ocl-icd-opencl-dev opencl-headers ocl-icd-libopencl1 pocl-opencl-icd clinfo
  libglew-dev libglm-dev librapidxml-dev
  libegl-dev libegl-mesa0 libgl-dev libgl1-mesa-dri libgles-dev mesa-common-dev
  xvfb xauth libglx-mesa0 fonts-dejavu-core
  qt6-base-dev libqt6opengl6-dev libqscintilla2-qt6-dev
  libavformat-dev libavcodec-dev libavutil-dev libswscale-dev
  libstb-dev
  libfreetype-dev fonts-dejavu-core
  libgtest-dev googletest
  clang libclang-rt-dev
)

missing=()
for p in "${PACKAGES[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed"; then
    missing+=("$p")
  fi
done

if [ ${#missing[@]} -eq 0 ]; then
  exit 0
fi

SUDO=""
if [ "$(id -u)" -ne 0 ]; then
  SUDO="sudo"
fi

echo "install-deps: installing ${missing[*]}"
export DEBIAN_FRONTEND=noninteractive
$SUDO apt-get update -qq
$SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
