#!/usr/bin/env bash
# Runs the console's browser test: installs playwright-core from the lock file into a work
# directory beside the build (never into the source tree) and runs the test against the
# installation tree given.
#
#   e2e/run.sh <installation tree> <work directory>
set -euo pipefail
here="$(cd "$(dirname "$0")" && pwd)"
tree="$(cd "$1" && pwd)"
workdir="$2"
mkdir -p "$workdir"
cp "$here/package.json" "$here/package-lock.json" "$here/console.test.mjs" "$workdir/"
cd "$workdir"
# The browser is Debian's chromium; playwright-core never downloads one.
export PLAYWRIGHT_SKIP_BROWSER_DOWNLOAD=1
npm ci --no-audit --no-fund --loglevel=error
exec node console.test.mjs "$tree"
