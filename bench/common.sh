# shellcheck shell=bash
# Shared by the benchmarks.  A benchmark defines `usage` and `measure`, optionally `fetch` (run before the sandbox is
# entered), sources this file and ends with `bench_main "$@"`.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

larkspur=build/release/larkspur
store=build/bench

bench_main() {
    local inside=
    quick=
    while [[ $# -gt 0 ]]; do
        case $1 in
            --quick) quick=--quick ;;
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
        exec tests/support/sandbox "bench/${0##*/}" --inside $quick
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
# `names`, `cpu[NAME]` (user + system) and `wall[NAME]`, the medians of ROUNDS runs.  PREPARE precedes every run; CHECK
# follows it and must succeed.  Taking turns keeps a busy minute of the machine from hitting one command alone.
compare() {
    local count=$1 prepare=$2 check=$3 round name seconds_cpu seconds_wall
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
    declare -gA cpu=() wall=()
    while IFS=$'\t' read -r name seconds_cpu seconds_wall; do
        names+=("$name")
        cpu[$name]=$seconds_cpu
        wall[$name]=$seconds_wall
    done < <(medians "$TMPDIR"/round-*.json)
}

medians() {
    perl -MJSON::PP -e '
        sub median { my @s = sort { $a <=> $b } @_; return ($s[$#s / 2] + $s[@s / 2]) / 2 }
        for my $file (@ARGV) {
            open my $in, "<", $file or die "$file: $!\n";
            local $/;
            for my $result (@{ decode_json(<$in>)->{results} }) {
                my $name = $result->{command};
                push @order, $name unless $cpu{$name};
                push @{ $cpu{$name} }, $result->{user} + $result->{system};
                push @{ $wall{$name} }, @{ $result->{times} };
            }
        }
        printf "%s\t%.6f\t%.6f\n", $_, median(@{ $cpu{$_} }), median(@{ $wall{$_} }) for @order;
    ' "$@"
}

# print_ratios TITLE: the last comparison, with the first command's seconds over those of each other.
print_ratios() {
    local title=$1 first=${names[0]} name
    printf '%s\n  %-22s %11s %11s   %s\n' "$title" "" "user+system" "wall" "ratio: user+system, wall"
    for name in "${names[@]}"; do
        printf '  %-22s %9.4f s %9.4f s' "$name" "${cpu[$name]}" "${wall[$name]}"
        if [[ $name != "$first" ]]; then
            printf '   %21.2f %5.2f' "$(ratio "${cpu[$first]}" "${cpu[$name]}")" \
                "$(ratio "${wall[$first]}" "${wall[$name]}")"
        fi
        echo
    done
    echo
}

ratio() { awk -v a="$1" -v b="$2" 'BEGIN { printf "%.9f", a / b }'; }

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
