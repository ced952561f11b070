# Types a line and a tab in a zsh of its own and looks at the line that comes of it.
zmodload zsh/zpty || exit 1
site=$1
integer failures=0

complete_line() {
    local text
    zpty larkspur-shell "TERM=dumb zsh -f -i"
    zpty -w larkspur-shell "PS1= RPS1= fpath=(${(q)PWD}/packaging/completions \$fpath)"
    zpty -w larkspur-shell "unsetopt zle_bracketed_paste; autoload -U compinit; compinit -u -D; bindkey ' ' self-insert"
    zpty -w larkspur-shell "show() { print -r -- \"<<\$BUFFER>>\"; BUFFER=; zle accept-line }"
    zpty -w larkspur-shell "zle -N show; bindkey '^X' show; print ready-to-type"
    zpty -r -m larkspur-shell text $'*\nready-to-type*'
    zpty -w -n larkspur-shell "$1"$'\t\x18'
    zpty -r -m larkspur-shell text '*<<*>>*'
    zpty -d larkspur-shell
    print -r -- "${${text##*<<}%%>>*}"
}

expect() {
    local line=$(complete_line "larkspur $2")
    [[ $line == "larkspur $1" ]] || { print -u2 "zsh: '$2' becomes '$line' instead of '$1'"; failures+=1 }
}

expect '--install-apache-conf ' --inst
expect '--run-application-script --script-name=upgrade ' '--run-application-script --script-name=up'
expect "--extract-application --www-root=$site/docs/" "--extract-application --www-root=$site/d"
expect "--extract-application --application-full-name=file:///$site/package/" \
    "--extract-application --application-full-name=file:///$site/p"
exit $failures
