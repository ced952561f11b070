# bash completion for larkspur(8)                                   -*- shell-script -*-

# The options of a command.  Behind one that takes a value stands a "=".
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

# For the option that is being given a value.
_larkspur_offer_values() {
    local given
    case $option in
        --script-name) _larkspur_offer "$start"{install,configure,upgrade,remove,enable,disable,query} ;;
        --script-language) _larkspur_offer "$start"{php,perl,binary,zt-engine-nimborun} ;;
        --user-name) _larkspur_offer_users "$start" ;;
        # Behind a slash the program would see an element of its own.
        --vhost-path) _larkspur_offer_paths places "$start" ;;
        --application-subdirectory)
            _larkspur_find_given --www-root
            _larkspur_offer_paths places "$start" "$given"
            ;;
        --www-root) _larkspur_offer_paths directories "$start" ;;
        --metadata-file | --php-cli) _larkspur_offer_paths files "$start" ;;
        --application-full-name) _larkspur_offer_packages ;;
        --script-file-name)
            _larkspur_find_given --application-full-name
            _larkspur_offer_paths files "$start" "${given#file:///}/scripts"
            ;;
    esac
}

_larkspur_offer_packages() {
    if [[ ${words[-1]} == "$start"file:///* ]]; then
        _larkspur_offer_paths directories "${start}file:///"
    else
        _larkspur_offer "${start}file:////"
    fi
}

# Those of a command's options that are not given yet; one of them may be given again.
_larkspur_offer_options() {
    local given candidate left=()
    for candidate; do
        _larkspur_find_given "${candidate%%=*}"
        if [[ $candidate == --additional-script-params= || -z $given ]]; then
            left+=("$candidate")
        fi
    done
    _larkspur_offer "${left[@]}"
}

_larkspur() {
    local words quote stays typed option start options
    COMPREPLY=()
    _larkspur_read_line || return
    if [[ ${#words[@]} -eq 2 ]]; then
        _larkspur_offer --extract-application --run-application-script --delete-application --install-apache-conf \
            --remove-apache-conf --help -h
        return
    fi
    read -r -a options < <(_larkspur_options "${words[1]}")
    _larkspur_find_option "${options[@]}"
    if [[ -n $option ]]; then
        _larkspur_offer_values
    else
        _larkspur_offer_options "${options[@]}"
    fi
}

complete -F _larkspur larkspur
