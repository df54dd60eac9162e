#!/usr/bin/env bash
# Builds the Debian packages zelk-sss, libzelk-sss-dev and python3-zelk-sss for this machine's
# distribution and prints where they are.
#   scripts/package.sh [FOLDER]    by default build/packages
set -euo pipefail
cd "$(dirname "$0")/.."
folder=$(realpath -m "${1:-build/packages}")
bash scripts/deps.sh --package
if environment=$(PYTHON=/usr/bin/python3 bash scripts/python-env.sh build); then
  python=(-DZELK_BUILD_PYTHON=ON "-DPython_EXECUTABLE=$environment/bin/python")
else
  echo "package.sh: without python3-zelk-sss, as its environment cannot be made (see above)" >&2
  python=(-DZELK_BUILD_PYTHON=OFF)
fi

# The distribution's hardening, without symbols for debuggers.
export DEB_CXXFLAGS_MAINT_STRIP=-g DEB_BUILD_MAINT_OPTIONS=hardening=+bindnow
cmake -S . -B build/package -G Ninja --fresh -DCMAKE_BUILD_TYPE=Release -DCMAKE_INSTALL_PREFIX=/usr \
  -DZELK_BUILD_TESTS=OFF "${python[@]}" \
  -DCMAKE_CXX_FLAGS="$(dpkg-buildflags --get CXXFLAGS) $(dpkg-buildflags --get CPPFLAGS)" \
  -DCMAKE_EXE_LINKER_FLAGS="$(dpkg-buildflags --get LDFLAGS)" \
  -DCMAKE_SHARED_LINKER_FLAGS="$(dpkg-buildflags --get LDFLAGS)" \
  -DCMAKE_MODULE_LINKER_FLAGS="$(dpkg-buildflags --get LDFLAGS)" >/dev/null
cmake --build build/package >&2

rm -f "$folder"/zelk-sss_*.deb "$folder"/libzelk-sss-dev_*.deb "$folder"/python3-zelk-sss_*.deb
(cd build/package && cpack -G DEB -B "$folder" >cpack.log) || { cat build/package/cpack.log >&2; exit 1; }
rm -rf "$folder/_CPack_Packages"
ls "$folder"/*.deb
