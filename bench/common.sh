# shellcheck shell=bash
# Shared by the benchmarks.  A benchmark defines `usage` and `measure`, optionally `fetch` (run before the sandbox is
# entered), sources this file and ends with `bench_main "$@"`.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

larkspur=build/release/larkspur
store=build/bench

bench_main() {
    local inside='' options=()
    quick='' other_build=''
    while [[ $# -gt 0 ]]; do
        case $1 in
            --quick) quick=yes options+=("$1") ;;
            --against)
                # Relative paths are the caller's, who stands where this shell came from.
                other_build=$(cd "$OLDPWD" && realpath -e -- "${2-}") || die "--against needs a program"
                options+=("$1" "$other_build")
                shift
                ;;
            --inside) inside=yes ;;
            -h | --help) usage; exit 0 ;;
            *) usage >&2; exit 2 ;;
        esac
        shift
    done

    if [[ -z $inside ]]; then
        require
        mkdir -p "$store"
        if declare -F fetch >/dev/null; then
            fetch
        fi
        exec tests/support/sandbox "bench/${0##*/}" --inside "${options[@]}"
    fi

    scratch=${LARKSPUR_SANDBOX:?the kernel allows no mount namespace here}
    aims=$TMPDIR/aims
    : >"$aims"
    add_places
    measure
    print_aims
}

require() {
    local tool
    [[ $EUID -eq 0 ]] || die "needs root, for the site accounts of the sandbox"
    [[ -x $larkspur ]] || die "$larkspur is missing; tools/bench builds it"
    for tool in hyperfine rsync /usr/bin/time perl; do
        command -v "$tool" >/dev/null || die "$tool is missing; tools/bench installs it"
    done
    perl -MJSON::PP -e 1 2>/dev/null || die "perl's JSON::PP is missing (Debian package perl)"
}

die() {
    echo "${0##*/}: $*" >&2
    exit 1
}

# Where to measure.  The disk is reached through a mount, so that the site account can follow paths into it wherever
# the working copy lies.
add_places() {
    local on_disk
    tmpfs=$scratch/memory
    disk=$scratch/disk
    mkdir "$tmpfs" "$disk"
    # ext4 passes over each inode freed within the last minutes when it looks for a new one, which takes far longer
    # than what is measured.  The attribute puts each run's place far from where an earlier one was deleted.
    chattr +T "$store" 2>/dev/null || true
    on_disk=$(mktemp -d "$store/place.XXXXXX")
    # shellcheck disable=SC2064 # the place of this run, whatever the variable holds at the end
    trap "rm -rf '$on_disk'" EXIT
    chmod 0755 "$on_disk"
    mount --bind "$on_disk" "$disk"
}

# How many rounds a comparison takes that deserves COUNT.
rounds() { [[ -n $quick ]] && echo 2 || echo "$1"; }

# compare ROUNDS PREPARE CHECK NAME COMMAND [NAME COMMAND...]: runs the commands in turns and leaves their seconds in
# `names`, `cpu[NAME]` (user + system) and `wall[NAME]`, the medians of ROUNDS runs, and the first command's user+system
# over theirs in `against[NAME]`, with its spread over the rounds in `spread[NAME]`.  PREPARE precedes every run; CHECK
# follows it and must succeed.  Taking turns keeps a busy minute of the machine from hitting one command alone.
compare() {
    local count=$1 prepare=$2 check=$3 round name seconds_cpu seconds_wall ratio_cpu range
    shift 3
    local commands=()
    while [[ $# -gt 0 ]]; do
        commands+=(--command-name "$1" "$2")
        shift 2
    done
    rm -f "$TMPDIR"/round-*.json
    for ((round = 1; round <= count; ++round)); do
        hyperfine -N --show-output --warmup $((round == 1)) --runs 1 --export-json "$TMPDIR/round-$round.json" \
            --prepare "$prepare" --cleanup "$check" "${commands[@]}" >"$TMPDIR/hyperfine" 2>&1 || {
            cat "$TMPDIR/hyperfine" >&2
            die "a run failed"
        }
    done
    names=()
    declare -gA cpu=() wall=() against=() spread=()
    while IFS=$'\t' read -r name seconds_cpu seconds_wall ratio_cpu range; do
        names+=("$name")
        cpu[$name]=$seconds_cpu
        wall[$name]=$seconds_wall
        against[$name]=$ratio_cpu
        spread[$name]=$range
    done < <(medians "$TMPDIR"/round-*.json)
}

# A line a command: name, median seconds user+system and wall, and how the first command's user+system relates to its
# own: median, least and greatest of the rounds.
medians() {
    perl -MJSON::PP -e '
        sub median { my @s = sort { $a <=> $b } @_; return ($s[$#s / 2] + $s[@s / 2]) / 2 }
        for my $file (@ARGV) {
            open my $in, "<", $file or die "$file: $!\n";
            local $/;
            my $first;
            for my $result (@{ decode_json(<$in>)->{results} }) {
                my $name = $result->{command};
                push @order, $name unless $cpu{$name};
                my $seconds = $result->{user} + $result->{system};
                $first //= $seconds;
                push @{ $cpu{$name} }, $seconds;
                push @{ $ratio{$name} }, $first / $seconds;
                push @{ $wall{$name} }, @{ $result->{times} };
            }
        }
        for (@order) {
            my @ratios = sort { $a <=> $b } @{ $ratio{$_} };
            printf "%s\t%.6f\t%.6f\t%.6f\t%.2f to %.2f\n", $_, median(@{ $cpu{$_} }), median(@{ $wall{$_} }),
                median(@ratios), @ratios[0, -1];
        }
    ' "$@"
}

# print_ratios TITLE: the last comparison, with the first command's seconds over those of each other.
print_ratios() {
    local title=$1 first=${names[0]} name
    printf '%s\n  %-22s %11s %11s   %s\n' "$title" "" "user+system" "wall" "ratio: user+system, wall"
    for name in "${names[@]}"; do
        printf '  %-22s %9.4f s %9.4f s' "$name" "${cpu[$name]}" "${wall[$name]}"
        if [[ $name != "$first" ]]; then
            printf '   %6.2f (%s) %5.2f' "${against[$name]}" "${spread[$name]}" \
                "$(ratio "${wall[$first]}" "${wall[$name]}")"
        fi
        echo
    done
    echo
}

ratio() { awk -v a="$1" -v b="$2" 'BEGIN { printf "%.9f", a / b }'; }

# instructions INPUT COMMAND...: the instructions of COMMAND in user space, with INPUT on its standard input.
instructions() {
    local input=$1
    shift
    # The program ends as the site's account, which can write a file that is there.
    : >"$TMPDIR/callgrind.out" && chmod 0666 "$TMPDIR/callgrind.out"
    valgrind --tool=callgrind --vgdb=no --callgrind-out-file="$TMPDIR/callgrind.out" "$@" <"$input" \
        >"$TMPDIR/valgrind" 2>&1 || {
        cat "$TMPDIR/valgrind" >&2
        die "a run failed: $*"
    }
    awk '/refs:/ { gsub(",", "", $NF); print $NF }' "$TMPDIR/valgrind"
}

# peak_kilobytes INPUT COMMAND...: the greatest resident memory of COMMAND, with INPUT on its standard input.
peak_kilobytes() {
    local input=$1
    shift
    /usr/bin/time -q -f %M -o "$TMPDIR/peak" "$@" <"$input" >"$TMPDIR/output" 2>&1 || {
        cat "$TMPDIR/output" >&2
        die "a run failed: $*"
    }
    cat "$TMPDIR/peak"
}

# aim_against NAME LIMIT WHAT: for the last comparison.
aim_against() { aim "${against[$1]}" "$2" "$3 (${spread[$1]})"; }

# aim MEASURED LIMIT WHAT
aim() { printf '%s\t%s\t%s\n' "$@" >>"$aims"; }

print_aims() {
    awk -F '\t' '
        BEGIN { printf "%10s %10s\n", "measured", "at most" }
        {
            # Judged as printed, so that no line reads "1.25, at most 1.25, missed".
            shown = $1 >= 1000 ? sprintf("%d", $1) : sprintf("%.2f", $1)
            missed = shown + 0 > $2 + 0
            total += missed
            printf "%10s %10s  %-6s  %s\n", shown, $2, missed ? "MISSED" : "met", $3
        }
        END { printf "\n%d of %d aims missed\n", total, NR }' "$aims"
}

# make_tree DIRECTORY FILES PER_DIRECTORY: files of 1 KiB, twenty directories to a group however many files there
# are, with names about as long as those of real applications.
make_tree() {
    perl -e '
        my ($root, $files, $perDirectory) = @ARGV;
        my $text = "<?php // " . "x" x 1014 . "\n";
        mkdir $root or die "$root: $!\n";
        for my $number (0 .. $files - 1) {
            my $directory = int($number / $perDirectory);
            my $group = sprintf "%s/extension-%03d", $root, $directory / 20;
            my $parent = sprintf "%s/components-%02d", $group, $directory % 20;
            if ($number % $perDirectory == 0) {
                mkdir $group;
                mkdir $parent or die "$parent: $!\n";
            }
            my $file = sprintf "%s/document-%03d.php", $parent, $number % $perDirectory;
            open my $out, ">", $file or die "$file: $!\n";
            print $out $text;
            close $out or die "$file: $!\n";
        }' "$@"
}

# make_levels DIRECTORY LEVELS FILES: FILES files of 1 KiB in each of LEVELS directories, one inside the other.
make_levels() {
    perl -e '
        my ($root, $levels, $files) = @ARGV;
        for (1 .. $levels) {
            mkdir $root or die "$root: $!\n";
            chdir $root or die "$root: $!\n";
            for my $number (1 .. $files) {
                open my $out, ">", "file-$number" or die "file-$number: $!\n";
                print $out "x" x 1024;
                close $out or die "file-$number: $!\n";
            }
            $root = "l";
        }' "$@"
}

# fetch_trees NAME...: the document files of Debian packages, kept below the store.
fetch_trees() {
    local name
    for name in "$@"; do
        [[ -d $store/trees/$name ]] || fetch_tree "$name"
    done
}

# The document files of a Debian package, with every symbolic link replaced by what it names inside the package.
fetch_tree() {
    local name=$1 work
    work=$(mktemp -d "$store/fetch.XXXXXX")
    (cd "$work" && download "$name" && dpkg -x "$name"_*.deb unpacked)
    # Links out of the package would bring in whatever this host happens to have.
    find "$work/unpacked" -lname '/*' -delete
    find "$work/unpacked" -xtype l -delete
    cp -rL "$work/unpacked/usr/share/$name" "$work/tree"
    chmod -R a+rX "$work/tree"
    mkdir -p "$store/trees"
    mv -T "$work/tree" "$store/trees/$name"
    rm -rf "$work"
}

download() {
    local options=(-qq -o APT::Sandbox::User=root)
    apt-get "${options[@]}" download "$1" || { apt-get -qq update && apt-get "${options[@]}" download "$1"; }
}

# write_metadata PACKAGE MAPPING...
write_metadata() {
    local package=$1
    shift
    {
        echo '<?xml version="1.0" encoding="UTF-8"?>'
        echo '<application version="1.1" xmlns="http://nimbo.example/ns/wtx/1"'
        echo '             xmlns:php="http://nimbo.example/ns/wtx/1/php">'
        echo '  <name>bench</name><version>1</version><release>1</release>'
        printf '  %s\n' "$@"
        echo '</application>'
    } >"$package/APP-META.xml"
}

# make_package PACKAGE NAME: a fetched tree as a package with one mapping.
make_package() {
    mkdir "$1"
    cp -r "$store/trees/$2" "$1/htdocs"
    write_metadata "$1" '<mapping url="/" path="htdocs"/>'
}

# The command line that installs PACKAGE into SITE, as words that need no quoting.
extract_command() {
    local package=$1 site=$2 metadata=${3:-"''"}
    echo "$larkspur --extract-application --application-full-name=file:///$package --vhost-path=${site%/*}" \
        "--www-root=$site --user-name=sitea --application-subdirectory=. --metadata-file $metadata"
}

# Both leave an empty site, with nothing of an earlier run left to be written back while the next is timed.
clear_site() {
    rm -rf "$1"
    new_site "$1"
}

# Freed inodes slow ext4 down (see add_places).  So an old site keeps its inodes and gives back its blocks only.
retire_site() {
    if [[ -e $1 ]]; then
        find "$1" -type f -exec truncate -s 0 {} +
        mv -T "$1" "$(mktemp -d "$1.XXXXXX")"
    fi
    new_site "$1"
}

new_site() {
    mkdir "$1"
    chown sitea:kroserv "$1"
    sync -f "$1"
}
export -f clear_site retire_site new_site

remove_command() {
    local site=$1
    echo "$larkspur --delete-application --user-name=sitea --vhost-path=${site%/*} --www-root=$site" \
        "--application-subdirectory=app"
}

# write_removal_list TREE FILE: the entries of a tree, in no useful order.
write_removal_list() {
    (cd "$1" && find . -mindepth 1 -printf '%P\n') | shuf --random-source=<(yes) >"$2.entries"
    {
        echo '<INSTANCE-DATA><SECTION PREFIX="htdocs">'
        sed 's|.*|<FILE>&</FILE>|' "$2.entries"
        echo '</SECTION></INSTANCE-DATA>'
    } >"$2"
}
