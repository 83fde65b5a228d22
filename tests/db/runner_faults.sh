#!/bin/bash
# The runner on a full disk: createdb leaves no half-made database behind, and output that cannot be written ends
# the run with 1 (usage: runner_faults.sh PEL008_BATCH WORK_DIR).
set -u
batch=$1
work=$2
rm -rf "$work"
mkdir -p "$work"
fail() {
    echo "$*" >&2
    exit 1
}
for jet in "" --jet; do
    for kib in 2 6 40; do
        if (trap '' XFSZ; ulimit -f "$kib"; "$batch" --home "$work" createdb $jet) 2>/dev/null; then
            fail "createdb $jet within $kib KiB ended with 0"
        fi
        left=$(ls "$work")
        [ -z "$left" ] || fail "createdb $jet within $kib KiB left: $left"
    done
done
"$batch" --home "$work" createdb || fail "createdb without a limit failed"
if "$batch" --home "$work" --help >/dev/full 2>/dev/null; then
    fail "--help to a full device ended with 0"
fi
if "$batch" --home "$work" sql "select count(*) from jyuden" >/dev/full 2>/dev/null; then
    fail "rows to a full device ended with 0"
fi
"$batch" --home "$work" sql "select count(*) from jyuden" >/dev/null || fail "rows to /dev/null did not end with 0"
