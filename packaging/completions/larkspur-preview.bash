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
        --format) mapfile -t COMPREPLY < <(compgen -W "text json installed-files obsolete-files fragment" -- "$word") ;;
        --ignore)
            mapfile -t COMPREPLY < <(compgen -W "broken-link directory-occupied dotted-extension edited empty-redirect
                file-occupied htaccess leads-elsewhere missing-source no-document-root no-parent no-script
                not-permitted outside-package path-too-long replaces shadowed ships-data special-file
                unknown-attribute unknown-element unreadable-site unreadable-source unrepresentable-name
                url-leaves-root url-text" \
                -- "$word")
            ;;
        --metadata-file | --previous-list) mapfile -t COMPREPLY < <(compgen -f -- "$word") ;;
        --www-root | --previous-package) mapfile -t COMPREPLY < <(compgen -d -- "$word") ;;
        --user-name) mapfile -t COMPREPLY < <(compgen -u -- "$word") ;;
        --application-subdirectory) ;;
        *)
            if [[ $word == -* ]]; then
                # A bare switch does nothing: its value belongs to it.
                mapfile -t COMPREPLY < <(compgen -W "--format= --summary --all --ignore= --metadata-file= --www-root=
                    --application-subdirectory= --previous-list= --previous-package= --user-name=
                    --skip-webserver-write --disable-php-support=1 --disable-cgi-support=1 --help --version" -- "$word")
                [[ ${#COMPREPLY[@]} -ne 1 || ${COMPREPLY[0]} != *= ]] || compopt -o nospace 2>/dev/null
                return
            fi
            mapfile -t COMPREPLY < <(compgen -d -- "$word")
            ;;
    esac
    [[ $option == --format || $option == --ignore || $option == --user-name ]] || compopt -o filenames 2>/dev/null
}

complete -F _larkspur_preview larkspur-preview
