#!/usr/bin/env bash
# Runs the sessions of commands that the pages show, in an empty folder each.
# run.sh FOLDER_OF_VES WORK_FOLDER SESSION...
set -euo pipefail
export PATH=$1:$PATH
work=$2
shift 2
for session in "$@"; do
  folder=$work/$(basename "$session" .sh)
  rm -rf "$folder"
  mkdir -p "$folder"
  (cd "$folder" && bash -eu "$session")
done
