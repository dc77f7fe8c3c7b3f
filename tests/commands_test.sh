#!/usr/bin/env bash
# Tests ./run, ./test and what they share, the native program with unusual machine files, and that lists of the same
# things agree.
# usage: commands_test.sh PROGRAM
program=$1 failed=0
cd "$(dirname "$(realpath "$0")")/.." || exit
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
export LC_ALL=C.UTF-8 TMPDIR=$folder ProgramFiles='C:\Program Files' MORDWELL_MACHINE=$folder/m.json
fail() { printf 'FAIL: %s\n' "$*"; failed=1; }

# same LIST ENTRIES LIST ENTRIES: both lists have the same entries, in any order.
same() {
    diff -U 1 --label "$1" --label "$3" <(sort -u <<<"$2") <(sort -u <<<"$4") || fail "the lists differ: $1, $3"
}
words=$(sed -n 's/^    {"\(\w*\)", .*/\1/p' src/main.cpp)
same commands "$words" usage "$(grep -oP '^ +"    \K\w+( \| \w+)*' src/main.cpp | grep -o '\w*')"
same commands "$words" "./run --help" "$(./run --help | sed -n '/^WORD/{n;p}' | grep -o '\w*')"
# shellcheck disable=SC2016 # Markdown's backticks
same commands "$words" README.md "$(grep -P '^\| `\w+`' README.md | cut -d '|' -f 2 | grep -oP '`\K\w+')"
same commands "$words" packaging/README.txt.in "$(grep -oP '^ +Mordwell.exe \K\w+' packaging/README.txt.in)"
same simulation/cases "$(basename -s .json simulation/cases/*)" program.json "$(jq -r '.[].case' tests/program.json)"
same program.json "$(jq -r '.[] | .case + " " + .title' tests/program.json)" \
    "./run --help" "$(./run --help | sed '1,/^Cases/d; s/^ *//; s/  */ /')"

# expect COMMAND STRING...: the output of the shell command contains the strings, in this order.
expect() {
    local output rest string
    output=$(timeout 60 bash -c "$1" 2>&1) rest=$output
    for string in "${@:2}"; do
        [[ $rest == *"$string"* ]] || { fail "$1"$'\nexpected: '"$string"$'\nactual: '"$output"; return; }
        rest=${rest#*"$string"}
    done
}
# A machine file that cannot be read or written is refused and stays as it is.
while IFS='|' read -r json message; do
    printf '%b' "$json" >"$MORDWELL_MACHINE"
    # A limit on the size of files has the effect of a full disk.
    expect "trap '' XFSZ; ulimit -f 2; '$program' create" "m.json: $message"
    printf '%b' "$json" | cmp - "$MORDWELL_MACHINE" || fail "this file was changed: $json"
done <<'END'
{"faults": {"ExecQery": -1}}|faults.ExecQery: unknown key
{"faults": {"ExecQuery": [0, 2147749911]}}|faults.ExecQuery[1]: expected a code as the log shows it, signed
{"faults": {"netsh": []}}|faults.netsh: expected at least one entry
{"faults": {"updateRenames": {"x": 1}}}|faults.updateRenames.x: expected a string
{"interfaces": [{}, {"listedFromRead": 1001}]}|interfaces[1].listedFromRead: expected an integer
{"faults": {"createAtOnce": 40}}|cannot be written
{\n{|line 2, column 2: 
[]|expected an object
\n|the file is empty
END

expect ". scripts/common.sh; trap 'echo exits with \$?; ls $folder' EXIT; quietly title ls /none" \
    "No such" "failed: title" "exits with 1" tmp.
# ./run and ./test build the default build, and ./run runs no other.
[[ $program == "$PWD/build/default/Mordwell" ]] || exit $failed
install -D -m 755 /dev/stdin "$folder/bin/ctest" <<<$'#!/bin/sh\nexit 8'
expect "PATH=$folder/bin:\$PATH ./test; echo exits with \$?" "exits with 8"
expect "./run --machine simulation/cases/empty.json" "use --case"
expect "env -u ProgramFiles ./run --case restart-needed remove" "before:" 'VPN  ROOT\NET\0000  enabled' \
    "devcon: exit code 1: ROOT" "Log, " "    [debug] [Halvane" "Exit code: 0" "after:" 'VPN  ROOT\NET\0000  enabled'
# The variable names the machine. What an earlier run left there is not this run's.
echo '{"system": {"wmic": false, "logFolder": false}, "interfaces": [{"name": "A", "hidden": true}]}' >"$MORDWELL_MACHINE"
install -D /dev/null "$MORDWELL_MACHINE.files/log/tap-log.txt"
touch "$MORDWELL_MACHINE.files/C:\\wmic"
expect "./run list; echo exits with \$?; ls '$MORDWELL_MACHINE.files' | wc -l" \
    "A    hidden" "tap-log.txt:" "none" "Exit code: 255" "exits with 255" "0"
# Runs on one machine wait for each other.
expect "(flock 9; sleep 1; echo unlocked) 9<'$MORDWELL_MACHINE.files' & sleep 0.3; ./run list" unlocked before:
exit $failed
