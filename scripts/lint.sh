#!/usr/bin/env bash
# Checks the form of all code with clang-format, clang-tidy, shellcheck and, for JSON, jq. Exits with 1 at any warning.
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"
cd "$root"
# list PATTERN...: the files that git tracks or would add.
list() {
    git -c safe.directory="$root" -c core.quotePath=off ls-files --cached --others --exclude-standard -- "$@" |
        while IFS= read -r file; do if [[ -f $file ]]; then echo "$file"; fi; done
}

mapfile -t code < <(list '*.cpp' '*.h')
quietly "checking with clang-format" clang-format --dry-run -Werror "${code[@]}"

# tidy FOLDER: checks the files named on standard input, with the compiler's options from the compilation database in
# the folder. clang-tidy's counts of the warnings in system headers are left out.
tidy() {
    xargs -d '\n' -r -P "$(nproc)" -n 1 clang-tidy --quiet -p "$1" 2>&1 | sed '/^[0-9].* generated\.$/d'
}
# What the native build does not compile is for Windows alone. It is checked with mingw-w64's headers and with those of
# the native Qt, which adapt to the target. gcc's own headers are left out, because clang has its own.
windows_options() {
    local target=x86_64-w64-mingw32
    printf '%s\n' "--target=$target" -std=c++17 -nostdinc++ -D_WIN32_WINNT=0x0601 -Dtessark_EXPORTS \
        "-I$root/src" "-I$root/libtessark" "-I$root/simulation"
    {
        "$target-g++" -E -v -x c++ /dev/null 2>&1 | sed -n '/^#include </,/^End/s/^ //p' | grep '/c++'
        echo "/usr/$target/include"
        jq -r '.[].command | scan("-isystem (\\S+)")[]' "$native" | sort -u
    } | sed 's/^/-isystem\n/'
}
export LC_ALL=C
native=build/default/compile_commands.json
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
windows_options >"$work/compile_flags.txt"
list '*.cpp' | sort >"$work/sources"
jq -r --arg root "$root/" '.[].file | ltrimstr($root)' "$native" | sort -u >"$work/native"
tidy_native() { comm -12 "$work/sources" "$work/native" | tidy build/default; }
tidy_windows() { comm -23 "$work/sources" "$work/native" | tidy "$work"; }
quietly "checking with clang-tidy (a minute)" tidy_native
quietly "checking the sources for Windows with clang-tidy" tidy_windows

mapfile -t scripts < <(list | while IFS= read -r file; do
    if [[ $(head -c 21 "$file" | tr -d '\0') == '#!/usr/bin/env bash'* ]]; then echo "$file"; fi
done)
quietly "checking with shellcheck" shellcheck --external-sources --source-path=SCRIPTDIR "${scripts[@]}" scripts/common.sh
mapfile -t json < <(list '*.json')
quietly "checking JSON with jq" jq empty "${json[@]}"
