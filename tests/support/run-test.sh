#!/usr/bin/env bash
# Runs one test binary in a sandbox of its own: a scratch HOME and XDG tree, C.UTF-8, and either
# Qt's offscreen platform or a private Xvfb server (-noreset keeps its keymap between clients).
set -euo pipefail

mode=$1
shift

scratch=$(mktemp -d "${TMPDIR:-/tmp}/tapwright-test.XXXXXX")
xvfb_pid=""
trap 'set +e; [ -n "$xvfb_pid" ] && kill "$xvfb_pid" 2>/dev/null && wait "$xvfb_pid"; rm -rf "$scratch"' EXIT

export HOME=$scratch/home XDG_CONFIG_HOME=$scratch/config XDG_DATA_HOME=$scratch/data XDG_CACHE_HOME=$scratch/cache
export XDG_STATE_HOME=$scratch/state
export XDG_RUNTIME_DIR=$scratch/runtime TMPDIR=$scratch/tmp LANG=C.UTF-8 LC_ALL=C.UTF-8
mkdir -p "$HOME" "$XDG_CONFIG_HOME" "$XDG_DATA_HOME" "$XDG_CACHE_HOME" "$XDG_STATE_HOME" "$XDG_RUNTIME_DIR" "$TMPDIR"
chmod 700 "$XDG_RUNTIME_DIR"

case "$mode" in
--offscreen)
    unset DISPLAY
    export QT_QPA_PLATFORM=offscreen
    ;;
--display)
    displayfile=$scratch/display
    Xvfb -displayfd 3 -noreset -nolisten tcp -screen 0 1280x1024x24 3>"$displayfile" 2>"$scratch/xvfb.log" &
    xvfb_pid=$!
    for _ in $(seq 1 100); do [ -s "$displayfile" ] || sleep 0.05; done
    [ -s "$displayfile" ] || { echo "run-test: Xvfb did not start" >&2; cat "$scratch/xvfb.log" >&2; exit 1; }
    export DISPLAY=":$(head -n1 "$displayfile")"
    export QT_QPA_PLATFORM=xcb
    ;;
*)
    echo "usage: run-test.sh --offscreen|--display <test> [args]" >&2
    exit 2
    ;;
esac

"$@"
