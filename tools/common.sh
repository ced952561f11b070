# shellcheck shell=bash
# Shared by the tools, which source this file: they run at the root of the tree, and their usage text and options are
# handled here.
set -euo pipefail
export LC_ALL=C.UTF-8 # what they sort and match is the same for everybody
cd "$(dirname "${BASH_SOURCE[0]}")/.."

# begin OPTIONS ARG... <<USAGE: handles the arguments of a tool.  OPTIONS is a list of names: "check" is a switch, which
# sets $check to 1; "preset=" takes a value, which $preset receives.  All other words, and what is behind "--", go into
# the array `rest`.  -h and --help print the usage and end the tool; an option that is not in the list ends it with 2.
begin() {
    local known=" $1 " name
    shift
    usage=$(cat)
    rest=()
    while [[ $# -gt 0 ]]; do
        name=${1#--}
        name=${name%%=*}
        case $1 in
            -h | --help)
                echo "$usage"
                exit 0
                ;;
            --)
                rest+=("${@:2}")
                return
                ;;
            --*=*)
                if [[ $known != *" $name= "* ]]; then
                    refuse "$1"
                fi
                printf -v "${name//-/_}" %s "${1#*=}"
                ;;
            --*)
                if [[ $known == *" $name= "* && $# -gt 1 ]]; then
                    printf -v "${name//-/_}" %s "$2"
                    shift
                elif [[ $known == *" $name "* ]]; then
                    printf -v "${name//-/_}" 1
                else
                    refuse "$1"
                fi
                ;;
            *) rest+=("$1") ;;
        esac
        shift
    done
}

refuse() {
    printf '%s: %s?\n%s\n' "${0##*/}" "$1" "$usage" >&2
    exit 2
}

# no_more_words: for tools that take options only.
no_more_words() {
    if [[ ${#rest[@]} -gt 0 ]]; then
        echo "${0##*/}: too many words: ${rest[*]}" >&2
        exit 2
    fi
}

# quietly COMMAND...: one line that says what is done; what the command prints is shown only if it fails.
quietly() {
    local output
    echo "${0##*/}: $*" >&2
    if ! output=$("$@" 2>&1); then
        printf '%s\n' "$output" "${0##*/}: failed: $*" >&2
        exit 1
    fi
}

build() { cmake --preset "$1" && cmake --build --preset "$1"; }

# tree_files TEST...: the files of the tree that pass find's tests, NUL-terminated.
tree_files() { find . \( -path ./build -o -path ./.git \) -prune -o -type f \( "$@" \) -print0; }
