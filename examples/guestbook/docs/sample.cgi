#!/bin/sh
# A reader of the guest book's file, for copying; it is documentation and is not run in this directory.
printf 'Content-Type: text/plain\r\n\r\n'
flock -s ../data/entries.tsv cut -f2 ../data/entries.tsv | sort -u
