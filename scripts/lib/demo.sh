# Sourced by scripts/run --demo: the program in a scratch copy of build/bin, fed by two simulated
# cameras on this machine. Nothing of the user's own configuration is read or written.

# tapwright_free_port <first>: the first port from <first> on that nothing listens on.
tapwright_free_port() {
    local port=$1
    while ss -Hltn "sport = :$port" | grep -q .; do
        port=$((port + 1))
    done
    echo "$port"
}

# tapwright_demo <build dir> [seconds]: runs until the window is closed, or for <seconds>.
tapwright_demo() {
    local build=$1 seconds=${2:-0}
    if [ -z "${DISPLAY:-}" ]; then
        echo "The demo shows a window and needs an X display (DISPLAY is not set)." >&2
        echo "Without a desktop, try: xvfb-run -a scripts/run --demo 30" >&2
        return 1
    fi

    local scratch
    scratch=$(mktemp -d "${TMPDIR:-/tmp}/tapwright-demo.XXXXXX")
    local program=$scratch/program camera=$build/tools/tapwright-camera
    cp -a "$build/bin/." "$program"
    rm -rf "$program/TCPconfig.json" "$program/Log"
    mkdir -p "$scratch/frames-device1" "$scratch/frames-device2" \
        "$scratch/config" "$scratch/data" "$scratch/cache" "$scratch/runtime"
    chmod 700 "$scratch/runtime"

    local port1 port2
    port1=$(tapwright_free_port 47001)
    port2=$(tapwright_free_port $((port1 + 1)))
    cat >"$program/TCPconfig.json" <<JSON
{
    "page_Device1": {
        "EndChar": "]",
        "FileDir": "$scratch/frames-device1",
        "StartChar": "[",
        "Status": 1,
        "TcpClientIP": "127.0.0.1",
        "TcpPort": "$port1",
        "TcpType": 0
    },
    "page_Device2": {
        "EndChar": "\$",
        "FileDir": "$scratch/frames-device2",
        "StartChar": "#",
        "Status": 1,
        "TcpClientIP": "",
        "TcpPort": "$port2",
        "TcpType": 1
    }
}
JSON

    local pids=()
    # shellcheck disable=SC2317 # called by the trap
    tapwright_demo_stop() {
        local pid
        for pid in "${pids[@]}"; do
            kill "$pid" 2>/dev/null || true
        done
        wait 2>/dev/null || true
    }
    trap tapwright_demo_stop EXIT INT TERM

    # Device 1 is a client: its camera listens on loopback and the program connects to it.
    "$camera" --listen "127.0.0.1:$port1" --reconnect --rate 2 --repeat 0 "PKG-A{seq}" \
        >"$scratch/camera1.log" 2>&1 &
    pids+=($!)

    # The program's own XDG directories, so the demo never meets the user's settings or lock.
    XDG_CONFIG_HOME=$scratch/config XDG_DATA_HOME=$scratch/data XDG_CACHE_HOME=$scratch/cache \
        XDG_RUNTIME_DIR=$scratch/runtime "$program/tapwright" >"$scratch/program.log" 2>&1 &
    local program_pid=$!
    pids+=("$program_pid")

    # Device 2 is a server on the machine's address, as the program shows it in the IP field.
    local address="" tries
    for tries in $(seq 1 100); do
        address=$(sed -n 's/.*serverIP *"\([^"]*\)".*/\1/p' "$scratch/program.log" | tail -n1)
        [ -n "$address" ] && break
        kill -0 "$program_pid" 2>/dev/null || break
        sleep 0.1
    done
    if [ -z "$address" ]; then
        echo "The program did not open device 2; see $scratch/program.log" >&2
        return 1
    fi
    "$camera" --connect "$address:$port2" --reconnect --rate 1 --repeat 0 --start '#' --end '$' "BOX-B{seq}" \
        >"$scratch/camera2.log" 2>&1 &
    pids+=($!)

    cat <<TEXT
Tapwright demo in $scratch
  device 1: TCP client of the simulated camera on 127.0.0.1:$port1, frames [PKG-A...] twice a second
  device 2: TCP server on $address:$port2, fed by a simulated camera once a second with #BOX-B...\$
  frame files: $scratch/frames-device1 and $scratch/frames-device2
  program output: $scratch/program.log, its log in $program/Log
TEXT
    if [ "$seconds" -gt 0 ]; then
        echo "Running for $seconds s."
        for tries in $(seq 1 "$seconds"); do
            kill -0 "$program_pid" 2>/dev/null || break
            sleep 1
        done
        kill "$program_pid" 2>/dev/null || true
    else
        echo "Close the window to end the demo."
    fi
    wait "$program_pid" 2>/dev/null || true
    tapwright_demo_stop
    trap - EXIT INT TERM
    echo "Frames stored: device 1 $(find "$scratch/frames-device1" -name '*.txt' | wc -l)," \
        "device 2 $(find "$scratch/frames-device2" -name '*.txt' | wc -l) (files kept in $scratch)"
}
