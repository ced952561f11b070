# bash completion for larkspur-site(8)                              -*- shell-script -*-

# Sets "setting" to a setting of the machine: NAME DEFAULT.
_larkspur_site_read_setting() {
    local words quote stays typed
    _larkspur_read_words "$(sed -n "s/^[[:blank:]]*$1=//p" "$settings" 2>/dev/null | tail -n 1)"
    setting=${words[-1]:-$2}
}

_larkspur_site_offer_hosts() {
    local setting found
    _larkspur_site_read_setting STATE /var/lib/larkspur
    _larkspur_find_paths places "" "$setting/sites"
    _larkspur_offer "${found[@]}"
}

# The same with hosts that have no application yet.
_larkspur_site_offer_all_hosts() {
    local setting found host hosts=()
    _larkspur_site_read_setting VHOSTS /var/www/vhosts
    _larkspur_find_paths places "" "$setting"
    for host in "${found[@]}"; do
        if [[ $host != system ]]; then
            hosts+=("$host")
        fi
    done
    _larkspur_offer "${hosts[@]}"
}

# The names of what is installed in a host.  The state has "%2F" for a slash, "%2E" for a dot in front, "%25" for "%".
_larkspur_site_offer_names() {
    local setting found
    _larkspur_site_read_setting STATE /var/lib/larkspur
    _larkspur_find_paths places "" "$setting/sites/$1"
    found=("${found[@]//%2F/\/}")
    found=("${found[@]/#%2E/.}")
    _larkspur_offer "${found[@]//%25/%}"
}

# The accounts that a host's applications belong to; all there are where it has none.
_larkspur_site_offer_accounts() {
    local setting accounts
    _larkspur_site_read_setting STATE /var/lib/larkspur
    mapfile -t accounts < <(
        sed -n 's/.*"account":"\([^"]*\)".*/\1/p' "$setting/sites/$1"/*/record.json 2>/dev/null | sort -u
    )
    if [[ ${#accounts[@]} -eq 0 ]]; then
        _larkspur_offer_users ""
    else
        _larkspur_offer "${accounts[@]}"
    fi
}

# For the option that is being given a value; of the others nothing is known here.
_larkspur_site_offer_values() {
    case $option in
        --settings | --list) _larkspur_offer_paths files "$start" ;;
        --language) _larkspur_offer "$start"{php,perl,binary,zt-engine-nimborun} ;;
    esac
}

# Sets "act" to the act among the words before, and "places" to what stands behind it.
_larkspur_site_read_act() {
    local word
    act=""
    places=()
    for word in "${words[@]:1:${#words[@]}-2}"; do
        if [[ -n $act ]]; then
            places+=("$word")
        elif [[ " ${acts[*]} " == *" $word "* ]]; then
            act=$word
        fi
    done
}

# What stands in the next place of the act.
_larkspur_site_offer_place() {
    local settings given
    _larkspur_find_given --settings
    settings=${given:-/etc/larkspur/site.conf}
    case $act:${#places[@]} in
        present:0) _larkspur_offer_paths directories "" ;;
        present:1) _larkspur_site_offer_all_hosts ;;
        present:2) _larkspur_site_offer_accounts "${places[1]}" ;;
        present:3) _larkspur_site_offer_names "${places[1]}" ;;
        absent:0 | list:0 | status:0 | verify:0) _larkspur_site_offer_hosts ;;
        absent:1 | status:1 | verify:1) _larkspur_site_offer_names "${places[0]}" ;;
    esac
}

_larkspur_site() {
    local words quote stays typed option start act places
    local acts=(present absent reload recover list status verify)
    local options=(--dry-run --ignore= --json --language= --list= --repair --script= --settings= --wait=
        --without-script --help --version)
    COMPREPLY=()
    _larkspur_read_line || return
    _larkspur_find_option "${options[@]}"
    if [[ -n $option ]]; then
        _larkspur_site_offer_values
        return
    fi
    _larkspur_site_read_act
    if [[ -z $act ]]; then
        _larkspur_offer "${acts[@]}" "${options[@]}"
    else
        _larkspur_site_offer_place
    fi
}

complete -F _larkspur_site larkspur-site
