#!/usr/bin/env bash
# Uses a wheel of scripts/wheel.sh on a fresh, minimal Debian 12 with nothing but python3 and numpy's wheel, in a
# chroot: a separation, a database written and read. Needs root and a Debian mirror.
#   scripts/check-wheel.sh [WHEEL]    by default the one in build/wheels, for the Python of Debian 12
set -euo pipefail
cd "$(dirname "$0")/.."
# shellcheck source=scripts/bare-root.sh
source scripts/bare-root.sh
wheel=$(realpath "${1:-$(ls build/wheels/zelksss-*-cp311-*.whl)}")
[ "$(id -u)" -eq 0 ] || { echo "check-wheel.sh: needs root, for chroot" >&2; exit 1; }
log=$(dirname "$wheel")/check.log
environment=$(bash scripts/python-env.sh wheel)

root=$(mktemp -d)
trap 'leave_bare_root "$root" remove' EXIT
make_bare_root "$root" "$log" || { tail "$log"; exit 1; }
enter_bare_root "$root"
install_inside "$log" python3
mkdir "$root/tmp/wheels" "$root/tmp/site"
cp "$wheel" "$root/tmp/wheels"
"$environment/bin/pip" download -q --disable-pip-version-check --no-deps --only-binary :all: \
  --python-version 3.11 -d "$root/tmp/wheels" numpy
# As pip does, which is not there: unpack, and let the reader be run.
inside sh -c 'for wheel in /tmp/wheels/*; do python3 -m zipfile -e "$wheel" /tmp/site; done
  chmod +x /tmp/site/zelksss/lib/zelk-sss/zelk-sofa-reader'
inside PYTHONPATH=/tmp/site python3 -c '
import numpy, zelksss
db = zelksss.Database.free_field([[0.05, 0, 0], [-0.05, 0, 0]])
db.write("/tmp/array.sofa")
assert (zelksss.Database.read("/tmp/array.sofa").h == db.h).all()
x = numpy.random.default_rng(1).standard_normal((16000, 2)).astype("float32")
out = zelksss.separate(x, db, [zelksss.Source(0, azimuth=30), zelksss.Source(1, azimuth=-60)])
assert out[0].shape == (16000,) and out[0].any()
print("check-wheel.sh: zelksss", zelksss.__version__, "separates and reads databases")'
