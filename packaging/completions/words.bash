# What the completions of larkspur's programs share.  Every offer is quoted as the word that is being typed needs it:
# names of files come from strangers, and the shell would run what stands in them.         -*- shell-script -*-

# Takes a line apart.  Sets variables that the caller has to declare:
#   words   what the shell would make of the words, the last one as far as it goes; "$" and "`" stand for themselves
#   quote   the quote that is open at the end
#   stays   the length of the last word's beginning that readline does not replace
#   typed   what readline has to be given of that beginning all the same: somebody's home directory
# Fails where a quote begins with "$".
_larkspur_read_words() {
    local line=$1 word="" begin="" opened=0 i char
    words=()
    quote=""
    stays=0
    typed=""
    for ((i = 0; i < ${#line}; i++)); do
        char=${line:i:1}
        if [[ -z $quote && $char == [[:space:]] ]]; then
            _larkspur_end_word
        else
            begin=${begin:-$i}
            _larkspur_read_character || return
        fi
    done
    if [[ -n $quote ]]; then
        stays=$opened
    fi
    words+=("$word")
    if [[ -n $begin ]]; then
        _larkspur_expand_home "${line:begin}"
    fi
}

# A blank ends the word, if one has begun.
_larkspur_end_word() {
    if [[ -n $begin ]]; then
        words+=("$word")
    fi
    word=""
    begin=""
    stays=0
}

# Takes one character of a word, or two where the first one is a backslash.
_larkspur_read_character() {
    if [[ $char == "$quote" ]]; then
        quote=""
    elif [[ -z $quote && $char == [\"\'] ]]; then
        quote=$char
        opened=${#word}
    elif [[ -z $quote && $char == \$ && ${line:i+1:1} == [\"\'] ]]; then
        return 1 # $'...' or $"..."
    elif [[ $quote != \' && $char == \\ ]]; then
        ((++i))
        _larkspur_take_escaped "${line:i:1}"
    else
        _larkspur_take "$char"
    fi
}

# In double quotes a backslash stands for itself before all but four characters.
_larkspur_take_escaped() {
    if [[ -n $quote && $1 != [\"\\\$\`] ]]; then
        word+=\\
    fi
    word+=$1
}

# Outside quotes readline may begin a word of its own behind the character.
_larkspur_take() {
    word+=$1
    if [[ -z $quote && $COMP_WORDBREAKS == *"$1"* ]]; then
        stays=${#word}
    fi
}

# Puts the home directory into the last word, which is given as it is typed, in place of "~" or "~somebody".
_larkspur_expand_home() {
    local home
    if [[ $1 =~ ^(~[[:alnum:]_.-]*)/ ]]; then
        typed=${BASH_REMATCH[1]}
        eval "home=$typed"
        words[-1]=$home${words[-1]#"$typed"}
        if ((stays > 0)); then
            ((stays += ${#home} - ${#typed}))
            typed=""
        else
            stays=${#home}
        fi
    fi
}

_larkspur_read_line() { _larkspur_read_words "${COMP_LINE:0:COMP_POINT}"; }

# Sets "quoted" to a text as it has to stand where a quote is open, or none.
_larkspur_quote() {
    local i char
    quoted=""
    for ((i = 0; i < ${#2}; i++)); do
        char=${2:i:1}
        case $1$char in
            \"[\"\\\$\`]) quoted+="\\$char" ;;
            \"!) quoted+='"\!"' ;; # the shell looks for its history even between double quotes
            \'\') quoted+="'\\''" ;;
            [\"\']?) quoted+=$char ;;
            [[:alnum:]_./:=@%+,-]) quoted+=$char ;;
            [[:cntrl:]]) quoted+="'$char'" ;; # a line feed behind a backslash would be taken away
            *) quoted+="\\$char" ;;
        esac
    done
}

# Offers those of the given words that begin with the one that is being typed.  It is called once for a word.
_larkspur_offer() {
    local word quoted
    for word; do
        if [[ $word == "${words[-1]}"* ]]; then
            _larkspur_quote "$quote" "${word:stays}"
            COMPREPLY+=("$typed$quoted")
        fi
    done
    if [[ ${#COMPREPLY[@]} -eq 1 ]]; then
        _larkspur_end_only_offer
    fi
}

# Readline puts a closing quote and a blank behind an offer that is the only one.
_larkspur_end_only_offer() {
    case $quote${COMPREPLY[0]} in
        *[=/]) compopt -o nospace ;; # a value or a path goes on
        \"*\" | \'*\') COMPREPLY[0]+=$quote ;; # readline takes this last quote for one that ends the word
    esac
}

# _larkspur_offer_users START: offers the accounts of the machine, behind an option for instance.
_larkspur_offer_users() {
    local users
    mapfile -t users < <(compgen -P "$1" -u)
    _larkspur_offer "${users[@]}"
}

# _larkspur_find_paths KIND BEGINNING DIRECTORY: sets "found" to the paths that begin so.  KIND is "files", "directories",
# or "places" for directories without a slash.  Relative paths begin at DIRECTORY.
_larkspur_find_paths() {
    mapfile -d "" found < <(
        exec 2>/dev/null
        _larkspur_expand_as_usual
        if [[ -n $3 ]]; then
            cd -- "$3" || exit
        fi
        _larkspur_print_paths "$1" "$2"
    )
}

# Undoes what the user may have set; for a shell of its own.
_larkspur_expand_as_usual() {
    set +f
    shopt -s nullglob
    shopt -u dotglob failglob nocaseglob
    unset GLOBIGNORE CDPATH
}

# The same paths, with a zero byte behind each.
_larkspur_print_paths() {
    local path
    for path in "$2"*; do
        if [[ -d $path && $1 != places ]]; then
            printf '%s\0' "$path/"
        elif [[ -d $path || $1 == files ]]; then
            printf '%s\0' "$path"
        fi
    done
}

# _larkspur_offer_paths KIND START [DIRECTORY]: offers paths behind the start of the word, an option for instance.
_larkspur_offer_paths() {
    local found
    _larkspur_find_paths "$1" "${words[-1]#"$2"}" "${3-}"
    _larkspur_offer "${found[@]/#/"$2"}"
    if [[ $1 == places ]]; then
        compopt -o nospace
    fi
}

# Sets "option" to the one whose value is being typed, and "start" to what stands before the value in its word.  The
# options that take a value are given with a "=" behind them.
_larkspur_find_option() {
    local name
    option=""
    start=""
    for name; do
        if [[ $name == *= && ${words[-1]} == "$name"* ]]; then
            option=${name%=}
            start=$name
        elif [[ $name == *= && ${words[-2]} == "${name%=}" ]]; then
            option=${name%=}
        fi
    done
}

# Sets "given" to the value of an option among the words before, or to nothing.
_larkspur_find_given() {
    local i
    given=""
    for ((i = 1; i < ${#words[@]} - 1; i++)); do
        case ${words[i]} in
            "$1="*) given=${words[i]#*=} ;;
            "$1") given=${words[i + 1]} ;;
        esac
    done
}
