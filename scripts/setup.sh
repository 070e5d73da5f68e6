#!/usr/bin/env bash
# Installs every Debian package the project needs to build, test and run.
# Idempotent: when everything is present it only checks and returns.
set -euo pipefail

PACKAGES=(
  build-essential cmake ninja-build pkg-config clang clang-format libclang-rt-dev
  libgtest-dev libgmock-dev libbenchmark-dev
  libjsoncpp-dev uuid-dev libsqlite3-dev sqlite3 libssl-dev zlib1g-dev
  libcivetweb-dev libcrypt-dev libpq-dev postgresql
  wrk chromium chromium-driver curl openssl
)

missing=()
for p in "${PACKAGES[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed"; then
    missing+=("$p")
  fi
done

# Node.js and npm drive the browser test; a machine may carry its own build of
# them outside Debian's packages, which serves as well.
if ! command -v npm >/dev/null 2>&1; then
  missing+=(nodejs npm)
fi

if ((${#missing[@]})); then
  echo "setup: installing ${missing[*]}"
  SUDO=""
  if [ "$(id -u)" != 0 ]; then SUDO=sudo; fi
  export DEBIAN_FRONTEND=noninteractive
  $SUDO apt-get update -qq
  $SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}"
else
  echo "setup: all packages present"
fi
