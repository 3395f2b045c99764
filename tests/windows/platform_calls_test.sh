#!/usr/bin/env bash
# The layer and Windows programs give the same answers: platform_calls_test.sh EMULATOR WINDOWS_PROGRAM LAYER_PROGRAM FOLDER
set -eu
seeds="1 2000"
# shellcheck disable=SC2086
"$3" $seeds >"$4/calls_of_the_layer.txt"
# shellcheck disable=SC2086
"$1" "$2" $seeds >"$4/calls_of_windows.txt"
exec "$3" --compare "$4/calls_of_the_layer.txt" "$4/calls_of_windows.txt"
