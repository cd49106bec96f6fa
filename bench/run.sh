#!/bin/bash
# Usage: bench/run.sh
# Builds and runs every benchmark and prints one table each, with what it is held against. The exit status is 0 only when
# every bound is met. Nothing else should run on the machine meanwhile.
set -euo pipefail
cd -- "$(dirname -- "${BASH_SOURCE[0]}")/.."

packaging/install-packages build demo test
cmake --preset release -Wno-dev >/dev/null
cmake --build --preset release
bench=$PWD/build/release/bench

printf '\n%s, %s cores, %s\n' "$(sed -n 's/^model name[[:space:]]*: //p' /proc/cpuinfo | head -n 1)" "$(nproc)" \
    "$(sed -n 's/^PRETTY_NAME="\(.*\)"/\1/p' /etc/os-release)"

missed=()
# run NAME COMMAND...
run() {
    printf '\n== %s\n' "$1"
    "${@:2}" || missed+=("$1")
}
run startup /usr/bin/python3 bench/startup.py "$bench" build/release/platform/qt/vexil3
run service_start /usr/bin/python3 bench/service_start.py "$bench" build/release/service/vexil3d
for program in edit_latency durable_write ini_file engine; do
    run "$program" "$bench/$program"
done

printf '\n'
if [ ${#missed[@]} -gt 0 ]; then
    echo "Missed: ${missed[*]}"
    exit 1
fi
echo "Every bound is met."
