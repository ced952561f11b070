# bash completion for larkspur(8)                                   -*- shell-script -*-

_larkspur_options() {
    case $1 in
        --extract-application)
            echo --application-full-name= --vhost-path= --www-root= --application-subdirectory= --user-name= \
                --metadata-file= --skip-webserver-write
            ;;
        --run-application-script)
            echo --application-full-name= --script-name= --user-name= --script-file-name= --script-language= \
                --php-cli= --additional-script-params=
            ;;
        --delete-application)
            echo --vhost-path= --www-root= --application-subdirectory= --user-name= --application-full-name=
            ;;
        --install-apache-conf)
            # A bare switch does nothing: its value belongs to it.
            echo --vhost-path= --www-root= --application-subdirectory= --metadata-file= --config-file-name= \
                --disable-php-support=1 --disable-cgi-support=1
            ;;
        --remove-apache-conf) echo --vhost-path= --www-root= --config-file-name= ;;
    esac
}

# A word without its quotes and backslashes; nothing in it is expanded.
_larkspur_unquoted() {
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

# The value of an option among the words given so far, for options whose values depend on it.
_larkspur_given() {
    local i
    for ((i = 1; i < ${#words[@]}; i++)); do
        case ${words[i]} in
            "$1="*) _larkspur_unquoted "${words[i]#*=}" ;;
            "$1") _larkspur_unquoted "${words[i + 1]-}" ;;
        esac
    done
}

# The possible values of an option that begin with the text given.
_larkspur_values() {
    local package
    case $1 in
        --script-name) compgen -W "install configure upgrade remove enable disable query" -- "$2" ;;
        --script-language) compgen -W "php perl binary zt-engine-nimborun" -- "$2" ;;
        --user-name) compgen -u -- "$2" ;;
        --vhost-path | --www-root) compgen -d -- "$2" ;;
        --metadata-file | --php-cli) compgen -f -- "$2" ;;
        --application-full-name)
            case $2 in
                file:///*) compgen -d -P file:/// -- "${2#file:///}" ;;
                *) compgen -W file://// -- "$2" ;;
            esac
            ;;
        --application-subdirectory) (cd -- "$(_larkspur_given --www-root)" 2>/dev/null && compgen -d -- "$2") ;;
        --script-file-name)
            package=$(_larkspur_given --application-full-name)
            (cd -- "${package#file:///}/scripts" 2>/dev/null && compgen -f -- "$2")
            ;;
    esac
}

_larkspur() {
    local words=() piece breaks="" word option="" typed option_list candidate given
    # readline splits words at "=" and ":", also where the shell does not.
    for piece in "${COMP_WORDS[@]:0:COMP_CWORD+1}"; do
        if [[ $piece =~ ^[=:]+$ && ${#words[@]} -gt 1 || -n $breaks ]]; then
            words[-1]+=$piece
        else
            words+=("$piece")
        fi
        [[ $piece =~ ^[=:]+$ ]] && breaks=1 || breaks=""
    done
    word=${words[-1]}
    typed=${COMP_WORDS[COMP_CWORD]}
    [[ $typed =~ ^[=:]+$ ]] && typed=""
    COMPREPLY=()

    if [[ ${#words[@]} -eq 2 ]]; then
        mapfile -t COMPREPLY < <(compgen -W "--extract-application --run-application-script --delete-application
            --install-apache-conf --remove-apache-conf --help -h" -- "$word")
        return
    fi

    case $word in
        --*=*) option=${word%%=*} word=${word#*=} ;;
        *) [[ " $(_larkspur_options "${words[1]}") " != *" ${words[-2]}= "* ]] || option=${words[-2]} ;;
    esac
    if [[ -n $option ]]; then
        case $option in
            --vhost-path | --application-subdirectory)
                # Readline would end the directory in a slash, which the program takes for an element of its own.
                mapfile -t COMPREPLY < <(_larkspur_values "$option" "$(_larkspur_unquoted "$word")")
                if [[ $typed == [\"\']* ]]; then
                    word=$(_larkspur_unquoted "$word") typed=${typed#?}
                elif [[ ${#COMPREPLY[@]} -gt 0 ]]; then
                    mapfile -t COMPREPLY < <(printf '%q\n' "${COMPREPLY[@]}")
                    [[ $word != \~* ]] || COMPREPLY=("${COMPREPLY[@]#\\}") # somebody's home directory
                fi
                ;;
            *) mapfile -t COMPREPLY < <(_larkspur_values "$option" "$word") ;;
        esac
        # What readline counts to the words before is there already.
        COMPREPLY=("${COMPREPLY[@]#"${word%"$typed"}"}")
        case $option:$word in
            --script-name:* | --script-language:* | --user-name:*) ;;
            --vhost-path:* | --application-subdirectory:*) compopt -o nospace 2>/dev/null ;; # a path may go on
            --application-full-name:file:///*) compopt -o filenames 2>/dev/null ;;
            # With "filenames" readline would put a fifth slash behind the four.
            --application-full-name:*) compopt -o nospace 2>/dev/null ;;
            *) compopt -o filenames 2>/dev/null ;; # a slash behind directories, quotes where names need them
        esac
        return
    fi

    option_list=$(_larkspur_options "${words[1]}")
    for candidate in $option_list; do
        [[ $candidate != --additional-script-params= ]] && given=$(_larkspur_given "${candidate%%=*}") || given=""
        if [[ $candidate == "$word"* && -z $given ]]; then
            COMPREPLY+=("$candidate")
        fi
    done
    [[ ${#COMPREPLY[@]} -ne 1 || ${COMPREPLY[0]} != *= ]] || compopt -o nospace 2>/dev/null
}

complete -F _larkspur larkspur
