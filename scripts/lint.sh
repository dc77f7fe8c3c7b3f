#!/usr/bin/env bash
# Checks the form of all code: clang-format, clang-tidy, shellcheck, and that JSON is JSON. Ends with 1 at any finding.
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"
cd "$root"
list() { git -c safe.directory="$root" ls-files -- "$@"; }

mapfile -t code < <(list '*.cpp' '*.h')
quietly "checking with clang-format" clang-format --dry-run -Werror "${code[@]}"
# The rest is for Windows alone: clang-tidy has no headers for it.
mapfile -t native < <(list 'src/*.cpp' 'simulation/*.cpp' 'tests/*.cpp' |
    grep -vE '/libtessark_test\.cpp$')
tidy() { printf '%s\n' "${native[@]}" | xargs -P "$(nproc)" -n 1 clang-tidy --quiet -p build/default; }
quietly "checking with clang-tidy" tidy
mapfile -t scripts < <(list | while IFS= read -r file; do
    if [[ -f $file && $(head -c 21 "$file" | tr -d '\0') == '#!/usr/bin/env bash'* ]]; then echo "$file"; fi
done)
quietly "checking with shellcheck" shellcheck --external-sources --source-path=SCRIPTDIR "${scripts[@]}" scripts/common.sh
mapfile -t json < <(list '*.json')
quietly "checking JSON with jq" jq empty "${json[@]}"
