#!/usr/bin/env bash
# The main job: installs what is missing, builds, then encodes and decodes a
# real photo with the example codec (every pixel and entropy step done by
# the library) next to libjpeg-turbo, and prints the 4K speed table.
#   scripts/main_job.sh [IMAGE]     (default testdata/astronaut.png)
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/deps.sh
exec examples/rvtjpeg/main_job.sh "$@"
