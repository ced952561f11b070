# bash completion for larkspur-preview(1)                           -*- shell-script -*-

# For the option that is being given a value.
_larkspur_preview_offer_values() {
    local given
    case $option in
        --format) _larkspur_offer "$start"{text,json,installed-files,obsolete-files,fragment} ;;
        --ignore)
            _larkspur_offer "$start"{broken-link,directory-occupied,dotted-extension,edited,empty-redirect} \
                "$start"{file-occupied,htaccess,leads-elsewhere,missing-source,no-document-root,no-parent,no-script} \
                "$start"{not-permitted,outside-package,path-too-long,replaces,shadowed,ships-data,special-file} \
                "$start"{unknown-attribute,unknown-element,unreadable-site,unreadable-source,unrepresentable-name} \
                "$start"{url-leaves-root,url-text}
            ;;
        --metadata-file | --previous-list) _larkspur_offer_paths files "$start" ;;
        --www-root | --previous-package) _larkspur_offer_paths directories "$start" ;;
        --user-name) _larkspur_offer_users "$start" ;;
        --application-subdirectory)
            _larkspur_find_given --www-root
            _larkspur_offer_paths places "$start" "$given"
            ;;
    esac
}

_larkspur_preview() {
    local words quote stays typed option start
    # A bare switch does nothing: its value belongs to it.
    local options=(--format= --summary --all --ignore= --metadata-file= --www-root= --application-subdirectory=
        --previous-list= --previous-package= --user-name= --skip-webserver-write --disable-php-support=1
        --disable-cgi-support=1 --help --version)
    COMPREPLY=()
    _larkspur_read_line || return
    _larkspur_find_option "${options[@]}"
    if [[ -n $option ]]; then
        _larkspur_preview_offer_values
    elif [[ ${words[-1]} == -* ]]; then
        _larkspur_offer "${options[@]}"
    else
        _larkspur_offer_paths directories ""
    fi
}

complete -F _larkspur_preview larkspur-preview
