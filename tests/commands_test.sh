#!/usr/bin/env bash
# What the commands do with what is no machine file, with runs at once and when started in odd ways.
# usage: commands_test.sh PROGRAM
root=$(realpath "$(dirname "$0")/..")
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
export MORDWELL_MACHINE=$folder/m.json ProgramFiles='C:\Program Files'
result=0
# expect TEXT COMMAND...: a text in what the command writes.
expect() {
    local output
    output=$(timeout 20 "${@:2}" 2>&1)
    [[ $output == *"$1"* ]] || { printf 'FAIL: %s: %s\ngot: %s\n' "${*:2}" "$1" "$output"; result=1; }
}

MORDWELL_MACHINE=/dev/zero expect "/dev/zero: not a regular file" "$1" help
expect "== /dev/zero: not a regular file" env MORDWELL_MACHINE=/dev/zero "$root/run"
for _ in 1 2 3 4; do "$1" create 2>/dev/null & done
wait
expect 4 grep -c '"id"' "$MORDWELL_MACHINE"
ln -s "$root/test" "$folder/link"
expect "usage: ./test" "$folder/link" asan
expect "needs bash" dash "$root/run"
exit $result
