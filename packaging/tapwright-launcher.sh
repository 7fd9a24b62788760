#!/bin/sh
# Starts the installed program from lib/tapwright, where it finds its data.
here=$(dirname "$(readlink -f "$0")")
exec "$here/../lib/tapwright/tapwright" "$@"
