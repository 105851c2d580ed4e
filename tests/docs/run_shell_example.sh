#!/usr/bin/env bash
# usage: run_shell_example.sh SCRIPT FOLDER TOOLDIR - runs SCRIPT in a fresh FOLDER with TOOLDIR in the path.
set -euo pipefail
rm -rf "$2"
mkdir -p "$2"
cd "$2"
PATH="$3:$PATH" bash -euo pipefail "$1"
