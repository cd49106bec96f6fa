#!/bin/bash
# Usage: bench/run.sh [--record]
# Builds and runs every benchmark and prints one table each, with what it is held against. The exit status is 0 only when
# every bound is met. Nothing else should run on the machine meanwhile. With --record the tables go into docs/benchmarks.md as well,
# and, where it can be done (as root, with mmdebstrap and a network), the times of ./run on a fresh Debian.
set -euo pipefail
cd -- "$(dirname -- "${BASH_SOURCE[0]}")/.."
record=${1:-}
[ -z "$record" ] || [ "$record" = --record ] || { sed -n '2,5s/^# //p' "$0"; exit 2; }

tools/install-packages build demo test
cmake --preset release -Wno-dev >/dev/null
cmake --build --preset release
bench=$PWD/build/release/bench
page=$(mktemp)
output=$(mktemp)
fresh=$(mktemp)
trap 'rm -f "$page" "$output" "$fresh"' EXIT

machine="$(sed -n 's/^model name[[:space:]]*: //p' /proc/cpuinfo | head -n 1), $(nproc) cores, $(awk '/^MemTotal/ { printf "%.1f GiB", $2 / 1048576 }' \
    /proc/meminfo), $(sed -n 's/^PRETTY_NAME="\(.*\)"/\1/p' /etc/os-release), Linux $(uname -r)"
printf '\n%s\n' "$machine"
cat >"$page" <<END
# Benchmarks

What \`bench/run.sh --record\` measured: every number that is held to a bound, beside its baseline of the same run. The exit status of
the command is 0 only when every bound is met.

Machine: $machine.
Measured: $(date -u '+%Y-%m-%d %H:%M') UTC, at revision $(git rev-parse --short HEAD), release build.
END

missed=()
# run NAME TEXT COMMAND...: TEXT says what the numbers are.
run() {
    printf '\n== %s\n' "$1"
    local status=0
    "${@:3}" >"$output" || status=$?
    cat "$output"
    [ $status -eq 0 ] || missed+=("$1")
    { printf '\n## %s\n\n%s\n\n```\n' "$1" "$2"; cat "$output"; printf '```\n'; } >>"$page"
}

# The sizes of what is installed, programs stripped, as in the packages.
installed_size() {
    local folder
    folder=$(mktemp -d)
    cmake --install build/release --prefix "$folder" --strip >/dev/null
    (cd "$folder" && du -b bin/* && printf '%s\tall files\n' "$(find . -type f -printf '%s\n' | awk '{ n += $1 } END { print n }')") |
        awk '{ printf "%-20s%8.0f KiB\n", $2 == "all" ? "all files" : $2, $1 / 1024 }'
    rm -rf "$folder"
}

fresh_times() {
    sed -n -e 's/^The service runs, and the panel is open and attached to it: \(.*\) s after .*/window there            \1 s/p' \
        -e '/^\.\//p' "$fresh"
    return $fresh_status
}

run startup "The panel's start, memory and idling, beside a bare window with 36 controls of the toolkit's own." \
    /usr/bin/python3 bench/startup.py "$bench" build/release/platform/qt/vexil3
run service_start "The service from its start until it answers, beside a program that only binds and answers." \
    /usr/bin/python3 bench/service_start.py "$bench" build/release/service/vexil3d
run edit_latency "The cost of one edit in the core, on a window in memory." "$bench/edit_latency"
run durable_write "A durable write of a preference beside the bare system calls, and the writes of a whole save." \
    "$bench/durable_write"
run ini_file "INI files of any size and the whole configuration, beside a plain copy." "$bench/ini_file"
run engine "The router's own cost for each message, beside a plain ring." "$bench/engine"
[ ! -x "$bench/alsa_path" ] || run alsa_path "What the ALSA back end and the router cost for each event, without the kernel's part." "$bench/alsa_path"
run jack_latency "The time from one music program to another on JACK through the service, beside a direct connection, on a server that waits for its
clients (synchronous) and on one that does not (asynchronous)." "$bench/jack_latency"
run jack_throughput "64 ports on JACK with 1,000 messages a second each, for a minute, beside the service with nothing to do." \
    "$bench/jack_throughput"
run link_numbers "MIDI from one computer to another over loopback, from what the engine delivers here to what the engine takes there, beside bare
UDP; what 64 busy ports, losses, eight peers, a flood and nothing at all cost." "$bench/link_numbers"
run "installed size" "What an installation takes, the programs stripped." installed_size
if [ -n "$record" ]; then
    fresh_status=0
    tools/test-fresh-root run >"$fresh" 2>&1 || fresh_status=$?
    if [ $fresh_status -eq 77 ]; then
        tail -n 1 "$fresh"
    else
        run "fresh start" "\`./run\` on a fresh Debian 12 with nothing but git installed: to the panel's window, and to the end of the
demonstration. What the first time downloads was there already." fresh_times
    fi
fi

printf '\n'
printf '\n' >>"$page"
if [ ${#missed[@]} -gt 0 ]; then
    echo "Missed: ${missed[*]}" | tee -a "$page"
else
    echo "Every bound is met." | tee -a "$page"
fi
[ -z "$record" ] || cp "$page" docs/benchmarks.md
[ ${#missed[@]} -eq 0 ]
