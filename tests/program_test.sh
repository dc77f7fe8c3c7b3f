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

row=$(jq -ec --arg title "$title" '.[] | select(.title == $title) | {word: "check", exit: 0, native: false} + .
    | if keys != ["after", "case", "exit", "log", "native", "title", "word"] then error("wrong keys: \(keys)")
    elif .log | length == 0 or any(. == "") then error("log is not a list of strings") else . end' \
    "$root/tests/program.json") || { fail "program.json has no such row, or a wrong one"; exit 1; }
value() { jq -r "$1" <<<"$row"; }

# The log names the architecture, so both programs run on the same one.
case ${4-} in win32) filter='.system.x64 = false' ;; *) filter=. ;; esac
# run SYSTEM ENCODING LINE_ENDS COMMAND...: runs the row and puts its log, in UTF-8, and its outcome into the folder
# $folder/SYSTEM. The sed command LINE_ENDS checks and removes the CR of each line.
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
        sed -E "$3"'s/^[^[]*\[0x[0-9a-f]+\] //; s/QSet\((".*1"), (".*0")\)/QSet(\2, \1)/' >"$place/log"
    [[ -s $place/log ]] || echo "no log" >"$place/log"
}
run native UTF-8 '' "$program" &
[[ ${#runner[@]} -eq 0 ]] || run Wine CP1252 '/\r$/!s/$/(no CR)/; s/\r$//; ' "${runner[@]}"
wait

value '"exit code: \(.exit)", .after[]' >"$folder/expected"
# The strings of the log, in this order, with anything in between.
pattern=$(value '.log | map(gsub("(?<other>\\W)"; "\\\(.other)")) | "(?s)" + join(".*")')
for place in "$folder"/*/; do
    system=$(basename "$place")
    diff -U 9 --label expected --label "actual ($system)" "$folder/expected" "$place/outcome" &&
        diff -U 3 --label "machine (native)" --label "machine ($system)" "$folder"/native/machine.json \
            "$place/machine.json" &&
        diff -U 3 --label "log (native)" --label "log ($system)" "$folder/native/log" "$place/log" &&
        { grep -qPz "$pattern" "$place/log" || ! echo "the log lacks, in this order: $(value .log)"; } && continue
    fail "differs, as shown above. The log and standard error ($system):"$'\n'"$(cat "$place"/{log,stderr})"
done
exit $failed
