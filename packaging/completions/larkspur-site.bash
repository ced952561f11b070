# bash completion for larkspur-site(8)                              -*- shell-script -*-

# A word without its quotes and backslashes; nothing in it is expanded.
_larkspur_site_unquoted() {
    local i char quote="" plain=""
    for ((i = 0; i < ${#1}; i++)); do
        char=${1:i:1}
        if [[ -n $quote && $char == "$quote" ]]; then
            quote=""
        elif [[ -z $quote && $char == [\"\'] ]]; then
            quote=$char
        elif [[ $char == \\ && $quote != \' ]]; then
            plain+=${1:++i:1}
        else
            plain+=$char
        fi
    done
    printf '%s\n' "$plain"
}

# A setting of the machine: NAME DEFAULT.
_larkspur_site_setting() {
    local value
    value=$(sed -n "s/^[[:blank:]]*$1=//p" "$settings" 2>/dev/null | tail -n 1)
    value=$(_larkspur_site_unquoted "$value")
    printf '%s\n' "${value:-$2}"
}

# The names of the directories in a directory, a line each.
_larkspur_site_directories() { (cd -- "$1" 2>/dev/null && compgen -d | sort); }

# What is installed, from its state.
_larkspur_site_sites() { printf '%s/sites\n' "$(_larkspur_site_setting STATE /var/lib/larkspur)"; }
_larkspur_site_hosts() { _larkspur_site_directories "$(_larkspur_site_sites)"; }
_larkspur_site_names() {
    _larkspur_site_directories "$(_larkspur_site_sites)/$1" | sed 's/%2F/\//g; s/%2E/./; s/%25/%/g'
}
_larkspur_site_accounts() {
    sed -n 's/.*"account":"\([^"]*\)".*/\1/p' "$(_larkspur_site_sites)/$1"/*/record.json 2>/dev/null | sort -u
}

# Offers those lines of standard input that begin with the word.
_larkspur_site_offer() {
    local candidate begin
    begin=$(_larkspur_site_unquoted "$word")
    while IFS= read -r candidate; do
        [[ $candidate == "$begin"* ]] || continue
        [[ $word == [\"\']* ]] || candidate=$(printf '%q' "$candidate")
        COMPREPLY+=("$candidate")
    done
}

_larkspur_site() {
    local word=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD - 1]} settings=/etc/larkspur/site.conf
    local acts="present absent reload recover list status verify" i place=() host
    # readline splits words at "=".
    if [[ $word == = ]]; then
        word=""
    elif [[ $before == = ]]; then
        before=${COMP_WORDS[COMP_CWORD - 2]}
    fi
    COMPREPLY=()
    case $before in
        --settings | --list)
            mapfile -t COMPREPLY < <(compgen -f -- "$word")
            compopt -o filenames 2>/dev/null
            return
            ;;
        --language) mapfile -t COMPREPLY < <(compgen -W "php perl binary zt-engine-nimborun" -- "$word"); return ;;
        --ignore | --script | --wait) return ;;
    esac
    for ((i = 1; i < COMP_CWORD; i++)); do
        if [[ ${#place[@]} -gt 0 || " $acts " == *" ${COMP_WORDS[i]} "* ]]; then
            place+=("${COMP_WORDS[i]}")
        elif [[ ${COMP_WORDS[i]} == --settings ]]; then
            [[ ${COMP_WORDS[i + 1]} == = ]] && settings=${COMP_WORDS[i + 2]} || settings=${COMP_WORDS[i + 1]}
            settings=$(_larkspur_site_unquoted "$settings")
        fi
    done
    case ${place[0]-}:${#place[@]} in
        :0)
            mapfile -t COMPREPLY < <(compgen -W "$acts --dry-run --ignore= --json --language= --list= --repair
                --script= --settings= --wait= --without-script --help --version" -- "$word")
            [[ ${#COMPREPLY[@]} -ne 1 || ${COMPREPLY[0]} != *= ]] || compopt -o nospace 2>/dev/null
            ;;
        present:1) mapfile -t COMPREPLY < <(compgen -d -- "$word"); compopt -o filenames 2>/dev/null ;;
        present:2)
            _larkspur_site_offer < <(_larkspur_site_directories "$(_larkspur_site_setting VHOSTS /var/www/vhosts)" |
                grep -vx -e system -e '\..*')
            ;;
        present:3)
            host=$(_larkspur_site_unquoted "${place[2]}")
            _larkspur_site_offer < <(_larkspur_site_accounts "$host")
            [[ ${#COMPREPLY[@]} -gt 0 ]] || mapfile -t COMPREPLY < <(compgen -u -- "$word")
            ;;
        present:4)
            host=$(_larkspur_site_unquoted "${place[2]}")
            _larkspur_site_offer < <(_larkspur_site_names "$host")
            ;;
        absent:1 | list:1 | status:1 | verify:1) _larkspur_site_offer < <(_larkspur_site_hosts) ;;
        absent:2 | status:2 | verify:2)
            host=$(_larkspur_site_unquoted "${place[1]}")
            _larkspur_site_offer < <(_larkspur_site_names "$host")
            ;;
    esac
}

complete -F _larkspur_site larkspur-site
