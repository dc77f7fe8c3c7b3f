#!/usr/bin/env bash
# Runs one test case of program.json: the program on a copy of the machine. It checks the exit code, a text in the log
# and the interfaces afterwards. With a runner it also runs the Windows program, which has to do and log the same.
# usage: program_test.sh TITLE PROGRAM [RUNNER...]
title=$1 program=$2 runner=("${@:3}") failed=0
root=$(realpath "$(dirname "$(realpath "$0")")/..")
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
# Neither this variable nor the file in Wine's prefix may silence the log.
export QT_LOGGING_RULES='*.debug=false' LC_ALL=C.UTF-8 ProgramFiles='C:\Program Files'
fail() { printf 'FAIL: %s: %s\n' "$title" "$*"; failed=1; }

value() { jq -r ".$1" <<<"$case"; }
# run SYSTEM ENCODING COMMAND...: runs the case and puts its log and its outcome into the folder $folder/SYSTEM.
run() {
    local place=$folder/$1
    export MORDWELL_MACHINE=$place/machine.json
    install -D -m 644 "$root/simulation/cases/$(value case).json" "$MORDWELL_MACHINE" || exit
    "${@:3}" "$(value 'word // "check"')" 2>"$place/stderr"
    echo "exit code: $?" >"$place/outcome"
    # The ids of a QSet are in any order.
    { cat "$place"/*/log/tap-log.txt || echo "no log"; } 2>/dev/null | iconv -f "$2" | tr -d '\r' |
        sed -E 's/^[^[]*\[0x[0-9a-f]+\] (\[)/\1/; s/QSet\((".*1"), (".*0")\)/QSet(\2, \1)/' >"$place/log"
    grep -oF -- "$(value 'log // "arg:"')" "$place/log" | uniq >>"$place/outcome"
    jq -r '[.interfaces[]? | .name + if .hidden then " hidden" elif .hasDriver == false then "without driver"
        elif .enabled == false then " disabled" else " enabled" end] | join(", ")' "$MORDWELL_MACHINE" >>"$place/outcome"
}

case=$(jq -ec --arg title "$title" '.[] | select(.title == $title)' "$root/tests/program.json") || exit
run native UTF-8 "$program" &
[[ ${#runner[@]} -eq 0 ]] || run wine CP1252 "${runner[@]}"
wait
value '| "exit code: \(.exit // 0)", .log // "arg:", .after' >"$folder/expected"
for system in "$folder"/*/; do
    diff -U 9 --label expected --label actual "$folder/expected" "$system/outcome" &&
        diff -U 3 --label "native log" --label log "$folder/native/log" "$system/log" && continue
    fail "differs in $(basename "$system"). Its log and standard error:"$'\n'"$(cat "$system"/{log,stderr})"
done
exit $failed
