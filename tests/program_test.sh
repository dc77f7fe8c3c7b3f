#!/usr/bin/env bash
# Runs one row of program.json: the program on a copy of the row's case. Compares the exit code, the log and the
# interfaces afterwards. With a runner it also runs the Windows program, which has to log the same, and to leave the
# same machine file.
# usage: program_test.sh TITLE PROGRAM [RUNNER win64|win32]
title=$1 program=$2 runner=("${@:3}") failed=0
root=$(realpath "$(dirname "$(realpath "$0")")/..")
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
# Neither this variable nor the file in Wine's prefix may silence the log.
export QT_LOGGING_RULES='*.debug=false' LC_ALL=C.UTF-8 ProgramFiles='C:\Program Files'
fail() { printf 'FAIL: %s: %s\n' "$title" "$*"; failed=1; }

row=$(jq -ec --arg title "$title" '.[] | select(.title == $title) | {word: "check", exit: 0, native: false} + .' \
    "$root/tests/program.json") || { fail "program.json has no row with this title"; exit 1; }
value() { jq -r "$1" <<<"$row"; }
all_keys='after case exit log native title word'
keys=$(value 'keys | join(" ")')
[[ $keys == "$all_keys" ]] || fail "program.json: wrong keys"$'\nexpected: '"$all_keys"$'\nactual:   '"$keys"

# The log names the architecture, so both programs run on the same one.
case ${4-} in win32) filter='.system.x64 = false' ;; *) filter=. ;; esac
# run SYSTEM ENCODING LINE_END COMMAND...: runs the row and puts its log, in UTF-8 and with CRLF, and its outcome into
# the folder $folder/SYSTEM. LINE_END completes the line ends of the program's log.
run() {
    local place=$folder/$1
    export MORDWELL_MACHINE=$place/machine.json
    mkdir "$place" && jq "$filter" "$root/simulation/cases/$(value .case).json" >"$MORDWELL_MACHINE" || exit
    "${@:4}" "$(value .word)" 2>"$place/stderr"
    {
        echo "exit code: $?"
        jq -rf "$root/simulation/interfaces.jq" "$MORDWELL_MACHINE" | sed -E 's/^(.*)  .*  /\1 /; s/^ //'
    } >"$place/outcome"
    # Without dates, thread ids and the order of the ids in a QSet, which differ.
    cat "$place"/*/log/tap-log.txt 2>/dev/null | iconv -f "$2" |
        sed -E 's/^[^[]*\[0x[0-9a-f]+\] //; s/QSet\((".*1"), (".*0")\)/QSet(\2, \1)/; '"s/\$/$3/" >"$place/log"
    [[ -s $place/log ]] || echo "no log" >"$place/log"
}
run native UTF-8 '\r' "$program" &
[[ ${#runner[@]} -eq 0 ]] || run Wine CP1252 '' "${runner[@]}"
wait

value '"exit code: \(.exit)", .after[]' >"$folder/expected"
mapfile -t strings < <(value '.log[]')
[[ ${#strings[@]} -gt 0 ]] || fail "program.json: log is not a list of strings"
# contains_all FILE: the file contains all strings, in this order.
contains_all() {
    local rest string
    rest=$(cat "$1")
    for string in "${strings[@]}"; do
        [[ -n $string && $rest == *"$string"* ]] || { echo "not in the log, or not in this order: $string"; return 1; }
        rest=${rest#*"$string"}
    done
}
for place in "$folder"/*/; do
    system=$(basename "$place")
    diff -U 9 --label expected --label "actual ($system)" "$folder/expected" "$place/outcome" &&
        diff -U 3 --label "machine (native)" --label "machine ($system)" "$folder"/native/machine.json \
            "$place/machine.json" &&
        diff -U 3 --label "log (native)" --label "log ($system)" "$folder/native/log" "$place/log" &&
        contains_all "$place/log" && continue
    fail "differs, as shown above. The log and standard error ($system):"$'\n'"$(cat "$place"/{log,stderr})"
done
exit $failed
