# shellcheck shell=bash
# Sourced by the project's commands. A step that fails ends the command, which then shows why.
[ -n "${BASH_VERSION-}" ] || { echo "$0 needs bash: start it by its path" >&2; exit 2; }
set -euo pipefail
root=$(realpath "$(dirname "${BASH_SOURCE[0]}")/..")
export HOME=${HOME-~}

say() { printf '== %s\n' "$*" >&2; }
fail() { say "failed: $*"; exit 1; }
# Characters that CMake, Ninja's dependency files or a library path cannot contain.
unusable=$';#"\'&$`\\|<>*^:\n\t'
[[ $root != *["$unusable"]* ]] ||
    fail "the path of the checkout contains a line feed, a tab or one of ${unusable::-2}: $root"

# windows_path PATH: prints the path as a Windows program sees it under Wine.
windows_path() { printf '%s\n' "Z:${1//\//\\}"; }

# Debian's packages, by purpose.
declare -A packages=(
    [build]='cmake ninja-build g++ qtbase5-dev jq'
    [package]='g++-mingw-w64-x86-64-win32 g++-mingw-w64-i686-win32 dpkg-dev make perl python3 ca-certificates libz-mingw-w64-dev zip git'
    [wine]='wine64 mmdebstrap bubblewrap unzip binutils-mingw-w64-x86-64'
    [lint]='clang-format clang-tidy g++-mingw-w64-x86-64-win32 shellcheck git'
)

# alone COMMAND...: runs it while no other command installs packages for this checkout or builds it.
alone() {
    mkdir -p "$root/build" 2>/dev/null || true
    [[ -w $root/build ]] || fail "$(id -un) cannot write in $root/build"
    { flock -n 9 || { say "waiting for another command"; flock 9; }; "$@"; } 9>"$root/build/lock"
}

# quietly TITLE COMMAND...: shows the title, and how long the command took; shows the command's output only if it fails.
# The lock of alone() stays held for the whole step, but background processes that the command leaves do not hold it.
quietly() (
    title=$1 start=$SECONDS output=$(mktemp)
    shift
    trap 'rm -f "$output"' EXIT
    trap 'exit 130' HUP INT TERM
    say "$title"
    "$@" >"$output" 2>&1 </dev/null 9>&- ||
        { trap - EXIT; tail -n 40 "$output" >&2; fail "$title (whole output: $output)"; }
    say "$title: done in $((SECONDS - start)) s"
)

# need PURPOSE...: installs the packages for these purposes that are missing.
need() {
    local missing as_root=() command='apt-get update && apt-get install --no-install-recommends'
    mapfile -t missing < <(comm -23 \
        <(for purpose; do echo "${packages[$purpose]}"; done | tr ' ' '\n' | sort -u) \
        <(dpkg-query -W -f='${db:Status-Status} ${Package}\n' | sed -n 's/^installed //p' | sort -u))
    [[ ${#missing[@]} -gt 0 ]] || return 0
    if [[ $EUID -ne 0 ]]; then
        [[ -n $(type -P sudo) ]] || fail "missing packages; type as root: $command ${missing[*]}"
        sudo -n true 2>/dev/null || fail "missing packages; type: ${command//apt-get/sudo apt-get} ${missing[*]}"
        as_root=(sudo -n)
    fi
    alone quietly "installing ${missing[*]}" apt_install "${missing[@]}"
}
# Tries the package lists that the machine has, and only then updates them. The first attempt's errors do not matter. An
# update can fail for an archive that is not needed.
apt_install() {
    local apt=("${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get -y -o DPkg::Lock::Timeout=-1)
    local install=("${apt[@]}" install --no-remove --no-install-recommends "$@")
    "${install[@]}" >/dev/null 2>&1 || { "${apt[@]}" update; "${install[@]}"; }
}

# build PRESET TARGET [ARGUMENT...]: builds a target of the preset; configures the preset with these arguments first if
# that has not been done.
build() { alone build_preset "$@"; }
build_preset() {
    local preset=$1 target=$2 folder=$root/build/$1
    cd "$root"
    # CMake refuses the build folder of a checkout that was moved.
    grep -qsxF "CMAKE_HOME_DIRECTORY:INTERNAL=$root" "$folder/CMakeCache.txt" || rm -rf "$folder"
    [[ -f $folder/build.ninja ]] || quietly "configuring $preset" cmake --preset "$preset" "${@:3}"
    quietly "building $preset" cmake --build --preset "$preset" --target "$target"
}
