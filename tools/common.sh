# shellcheck shell=bash
# Sourced by the project's commands. A step that fails stops the command with its cause.
[ -n "${BASH_VERSION-}" ] || { echo "$0 needs bash: start it by its path" >&2; exit 2; }
set -euo pipefail
root=$(realpath "$(dirname "${BASH_SOURCE[0]}")/..")
export HOME=${HOME-~}

say() { printf '== %s\n' "$*" >&2; }
fail() { say "failed: $*"; exit 1; }
[[ $root != *[\;\#\"\'\&$'\n']* ]] || fail "CMake and Ninja cannot build in a folder with ; # \" ' or & in its name: $root"

# Debian's packages, by what they are for.
declare -A packages=(
    [build]='cmake ninja-build g++ qtbase5-dev'
    [run]='jq'
    [package]='g++-mingw-w64-x86-64-win32 g++-mingw-w64-i686-win32 dpkg-dev make perl python3 ca-certificates zip'
    [wine]='wine64 unzip jq binutils-mingw-w64-x86-64'
    [lint]='clang-format clang-tidy shellcheck jq'
)

# alone COMMAND...: runs it while no other command prepares or builds this checkout.
alone() {
    mkdir -p "$root/build" 2>/dev/null || true
    [[ -w $root/build ]] || fail "$(id -un) cannot write in $root/build"
    {
        flock --nonblock 9 || { say "waiting for another command"; flock 9; }
        "$@"
    } 9>"$root/build/lock"
}

# quietly WHAT COMMAND...: says what is done and how long it took; shows the command's output only when it fails.
# The lock lasts as long as the step, but what the command leaves in the background does not hold it.
quietly() (
    what=$1 start=$SECONDS output=$(mktemp)
    shift
    trap 'rm -f "$output"' EXIT
    trap 'exit 130' HUP INT TERM
    say "$what"
    if ! "$@" >"$output" 2>&1 </dev/null 9>&-; then
        trap - EXIT
        tail -n 40 "$output" >&2
        fail "$what (whole output: $output)"
    fi
    say "$what: done in $((SECONDS - start)) s"
)

# need PURPOSE...: installs those of the packages that are missing, after any other that installs.
need() {
    local missing apt=(env DEBIAN_FRONTEND=noninteractive apt-get -y --no-remove --no-install-recommends \
        -o DPkg::Lock::Timeout=-1)
    mapfile -t missing < <(comm -23 \
        <(for purpose; do echo "${packages[$purpose]-$purpose}"; done | tr ' ' '\n' | sort -u) \
        <(dpkg-query -W -f='${db:Status-Status} ${Package}\n' | sed -n 's/^installed //p' | sort -u))
    [[ ${#missing[@]} -gt 0 ]] || return 0
    if [[ $EUID -ne 0 ]]; then
        sudo -n true 2>/dev/null || fail "packages are missing; type: sudo apt-get install ${missing[*]}"
        apt=(sudo -n "${apt[@]}")
    fi
    # New package lists are asked for only when it does not work without; one that fails may not matter.
    # shellcheck disable=SC2317 # It does not see that "quietly" calls them.
    fetch() { "${apt[@]}" install "${missing[@]}" || { "${apt[@]}" update; "${apt[@]}" install "${missing[@]}"; }; }
    quietly "installing ${missing[*]}" fetch
}

# build PRESET [ARGUMENT...]: configures the preset with these arguments if that has not been done, and builds it.
build() { alone build_preset "$@"; }
build_preset() {
    local preset=$1
    cd "$root"
    # A checkout that was moved is built anew.
    grep -qsxF "CMAKE_HOME_DIRECTORY:INTERNAL=$root" "build/$preset/CMakeCache.txt" || rm -rf "build/$preset"
    if [[ ! -f build/$preset/build.ninja ]]; then
        quietly "configuring $preset" cmake --preset "$@"
    fi
    # Ninja answers -n within moments, so nothing is said when there is nothing to do.
    if [[ $(ninja -C "build/$preset" -n) != *"no work to do"* ]]; then
        quietly "building $preset" cmake --build --preset "$preset"
    fi
}
