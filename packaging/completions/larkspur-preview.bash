# bash completion for larkspur-preview(1)                           -*- shell-script -*-

_larkspur_preview() {
    local word=${COMP_WORDS[COMP_CWORD]} option=${COMP_WORDS[COMP_CWORD - 1]}
    # readline splits words at "=".
    if [[ $word == = ]]; then
        word=""
    elif [[ $option == = ]]; then
        option=${COMP_WORDS[COMP_CWORD - 2]}
    fi
    COMPREPLY=()
    case $option in
        --format) mapfile -t COMPREPLY < <(compgen -W "text json installed-files fragment" -- "$word") ;;
        --metadata-file) mapfile -t COMPREPLY < <(compgen -f -- "$word") ;;
        --www-root) mapfile -t COMPREPLY < <(compgen -d -- "$word") ;;
        --application-subdirectory) ;;
        *)
            if [[ $word == -* ]]; then
                # A bare switch does nothing: its value belongs to it.
                mapfile -t COMPREPLY < <(compgen -W "--format= --metadata-file= --www-root= --application-subdirectory=
                    --skip-webserver-write --disable-php-support=1 --disable-cgi-support=1 --help --version" -- "$word")
                [[ ${#COMPREPLY[@]} -ne 1 || ${COMPREPLY[0]} != *= ]] || compopt -o nospace 2>/dev/null
                return
            fi
            mapfile -t COMPREPLY < <(compgen -d -- "$word")
            ;;
    esac
    [[ $option == --format ]] || compopt -o filenames 2>/dev/null
}

complete -F _larkspur_preview larkspur-preview
