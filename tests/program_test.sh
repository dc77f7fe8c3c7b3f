#!/usr/bin/env bash
# Runs one test case of program.json: the program on a copy of the machine. It checks the exit code, a text in the log
# and the interfaces afterwards. With a runner it also runs the Windows program, which has to do and log the same.
# The title "commands" tests ./run and the native program with unusual arguments and machine files instead.
# usage: program_test.sh TITLE PROGRAM [RUNNER...]
title=$1 program=$2 runner=("${@:3}") failed=0
root=$(realpath "$(dirname "$(realpath "$0")")/..")
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
# Neither this variable nor the file in Wine's prefix may silence the log.
export QT_LOGGING_RULES='*.debug=false' LC_ALL=C.UTF-8 ProgramFiles='C:\Program Files'
fail() { printf 'FAIL: %s: %s\n' "$title" "$*"; failed=1; }

# expect PATTERN COMMAND...: the output of the command has to contain the pattern.
expect() {
    local output
    output=$(timeout 60 "${@:2}" 2>&1)
    # shellcheck disable=SC2053 # a pattern
    [[ $output == *$1* ]] || fail "${*:2}"$'\nexpected: '"$1"$'\nactual: '"$output"
}

commands() {
    export MORDWELL_MACHINE=$folder/m.json
    # A machine file that cannot be read or written is refused and stays as it is. A limit on the size of files acts
    # like a full disk.
    while IFS='|' read -r text message; do
        printf '%b' "$text" >"$MORDWELL_MACHINE"
        # shellcheck disable=SC2016 # for the inner shell
        expect "m.json: $message" bash -c 'trap "" XFSZ; ulimit -f 2; "$0" create' "$program"
        printf '%b' "$text" | cmp - "$MORDWELL_MACHINE" || fail "this file was changed: $text"
    done <<'EOF'
{"faults": {"wmi": {"ExecQery": -1}}}|faults.wmi.ExecQery: unknown key
{"faults": {"wmi": {"ExecQuery": 2147749911}}}|faults.wmi.ExecQuery: expected a code as the log shows it, signed
{"faults": {"updateRenames": {"x": 1}}}|faults.updateRenames.x: expected a string
{"interfaces": [{}, {"listedFromRead": 1001}]}|interfaces?1?.listedFromRead: expected an integer
{"faults": {"createAtOnce": 40}}|cannot be written
{\n{|line 2, column 2: 
[]|expected an object
\n|the file is empty
EOF
    MORDWELL_MACHINE=/dev/zero expect "/dev/zero: not a regular file" "$program" help
    cp "$root"/simulation/cases/*.json "$folder"
    # xargs would stop at the case whose log cannot be opened: the program ends with 255.
    # shellcheck disable=SC2016 # for the inner shell
    printf '%s\n' "$folder"/*-*.json | xargs -P 0 -I{} sh -c 'MORDWELL_MACHINE="{}" "$0" help || true' "$program" 2>&1 |
        grep '\.json: ' && fail "the program refuses a case"
    MORDWELL_MACHINE=$folder/empty.json
    seq 4 | xargs -P 0 -I{} "$program" create 2>/dev/null
    expect 4 grep -c '"id"' "$MORDWELL_MACHINE"

    ln -s "$root/run" "$folder/link"
    expect "usage: ./run*swapped-names" "$folder/link" --help
    expect "needs bash" dash "$root/run"
    MORDWELL_MACHINE=/dev/zero expect "== /dev/zero: not a regular file" "$root/run"
    expect "no such case: x" "$root/run" --case x
    expect "use --case" "$root/run" --machine "$root/simulation/cases/empty.json" list
    expect "unexpected --case" "$root/run" check --case empty
    # ./run builds and runs the default build alone.
    [[ $program == "$root/build/default/Mordwell" ]] || return
    expect "new.json does not exist: creating" "$root/run" --machine "$folder/new.json" list
    expect $'before:*none*devcon: exit code 2: *Log*    \e?31m?ERROR]\e?0m*code: 255*after:*0000  without driver*ended: 255' \
        script -qc "NO_COLOR= '$root/run' --case install-fails-late create; echo ended: \$?" /dev/null
}

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

if [[ $title == commands ]]; then commands; exit $failed; fi
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
