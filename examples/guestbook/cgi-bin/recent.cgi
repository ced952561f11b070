#!/usr/bin/perl
use strict;
use warnings;

use Fcntl qw(:flock);
use FindBin;
use POSIX qw(strftime);

my $file = "$FindBin::Bin/../data/entries.tsv";
my $shown = 5;

print "Content-Type: text/plain; charset=utf-8\r\n";

open(my $handle, '<', $file) or do {
    print "Status: 503 Service Unavailable\r\n\r\nThe book cannot be read at the moment.\n";
    exit 0;
};
flock($handle, LOCK_SH);
my @entries = map { /^(\d+)\t([^\t\n]*)\t([^\t\n]*)$/ ? [$1, $2, $3] : () } <$handle>;
close($handle);

my %names = map { $_->[1] => 1 } @entries;
print "\r\n";
printf "entries: %d\nvisitors: %d\n", scalar(@entries), scalar(keys %names);

my @recent = reverse @entries;
splice(@recent, $shown) if @recent > $shown;
printf "%s  %s: %s\n", strftime('%Y-%m-%d %H:%M', gmtime $_->[0]), $_->[1], $_->[2] for @recent;
