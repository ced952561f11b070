# bash completion for larkspur-site(8)                              -*- shell-script -*-

_larkspur_site() {
    local word=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD - 1]} i place=()
    # readline splits words at "=".
    if [[ $word == = ]]; then
        word=""
    elif [[ $before == = ]]; then
        before=${COMP_WORDS[COMP_CWORD - 2]}
    fi
    COMPREPLY=()
    case $before in
        --settings | --script) mapfile -t COMPREPLY < <(compgen -f -- "$word"); compopt -o filenames 2>/dev/null; return ;;
        --language) mapfile -t COMPREPLY < <(compgen -W "php perl binary zt-engine-nimborun" -- "$word"); return ;;
        --ignore) return ;;
    esac
    for ((i = 1; i < COMP_CWORD; i++)); do
        if [[ ${#place[@]} -gt 0 || ${COMP_WORDS[i]} =~ ^(present|absent|reload)$ ]]; then
            place+=("${COMP_WORDS[i]}")
        fi
    done
    case ${place[0]-}:${#place[@]} in
        :0)
            mapfile -t COMPREPLY < <(compgen -W "present absent reload --ignore= --language= --script= --settings=
                --help" -- "$word")
            [[ ${#COMPREPLY[@]} -ne 1 || ${COMPREPLY[0]} != *= ]] || compopt -o nospace 2>/dev/null
            ;;
        present:1) mapfile -t COMPREPLY < <(compgen -d -- "$word"); compopt -o filenames 2>/dev/null ;;
        present:2 | absent:1) mapfile -t COMPREPLY < <(cd /var/www/vhosts 2>/dev/null && compgen -d -X system -- "$word") ;;
        present:3 | absent:2) mapfile -t COMPREPLY < <(compgen -u -- "$word") ;;
    esac
}

complete -F _larkspur_site larkspur-site
