#!/bin/sh
# Starts the installed program, which keeps its data and settings beside itself in lib/tapwright.
here=$(dirname "$(readlink -f "$0")")
exec "$here/../lib/tapwright/tapwright" "$@"
