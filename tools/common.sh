# Sourced by the project's commands. A step that fails stops the command with its cause.
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd -P)

say() { printf '== %s\n' "$*" >&2; }
fail() { say "failed: $*"; exit 1; }

# quietly WHAT COMMAND...: says what is done and how long it took; shows the command's output only when it fails.
quietly() {
    local what=$1 start=$SECONDS output
    shift
    output=$(mktemp)
    say "$what"
    if ! "$@" >"$output" 2>&1 </dev/null; then
        tail -n 40 "$output" >&2
        fail "$what (whole output: $output)"
    fi
    rm -f "$output"
    say "$what: done in $((SECONDS - start)) s"
}

# need PACKAGE...: installs those of Debian's packages that are missing.
need() {
    local package installed missing=() as_root=()
    installed=$(dpkg-query -W -f='${binary:Package} ${db:Status-Status}\n' "$@" 2>/dev/null || true)
    for package in "$@"; do
        grep -qE "^${package//+/.}(:[a-z0-9]+)? installed$" <<<"$installed" || missing+=("$package")
    done
    [[ ${#missing[@]} -gt 0 ]] || return 0
    [[ $EUID -eq 0 ]] || as_root=(sudo)
    quietly "asking Debian for its package lists" "${as_root[@]}" apt-get update
    quietly "installing ${missing[*]}" "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive \
        apt-get install -y --no-install-recommends "${missing[@]}"
}

# build PRESET [ARGUMENT...]: configures the preset with these arguments if that has not been done, and builds it.
build() {
    local preset=$1
    shift
    cd "$root"
    # A checkout that was moved is built anew.
    grep -qsxF "CMAKE_HOME_DIRECTORY:INTERNAL=$root" "build/$preset/CMakeCache.txt" || rm -rf "build/$preset"
    if [[ ! -f build/$preset/build.ninja ]]; then
        quietly "configuring $preset" cmake --preset "$preset" "$@"
    fi
    # Ninja answers -n within moments, so nothing is said when there is nothing to do.
    if [[ $(ninja -C "build/$preset" -n) != *"no work to do"* ]]; then
        quietly "building $preset" cmake --build --preset "$preset"
    fi
}
