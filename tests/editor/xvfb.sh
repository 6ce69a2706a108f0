#!/bin/sh
# Runs a test program on the display there is, or on a virtual one.
if [ -n "$DISPLAY" ]; then exec "$@"; fi
exec xvfb-run -a -s "-screen 0 1280x1024x24" "$@"
