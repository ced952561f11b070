<?php
declare(strict_types=1);

// The guest book's file: one entry per line, "seconds since the epoch TAB name TAB message".

const DEFAULT_TITLE = 'Guest book';
const MAX_NAME = 60;
const MAX_MESSAGE = 1000;

function entries_file(string $root): string
{
    return $root . '/data/entries.tsv';
}

/** Comes with the package and is replaced with it; the book itself is made from it, once. */
function initial_entries_file(string $root): string
{
    return $root . '/data/initial/entries.tsv';
}

function title_file(string $root): string
{
    return $root . '/data/title.txt';
}

/** A program, so that no visitor is shown the hash in it. */
function password_file(string $root): string
{
    return $root . '/password.php';
}

function is_closed(string $root): bool
{
    return is_file(password_file($root));
}

/** Text as one line: every run of white space and control characters becomes one blank. */
function one_line(string $text): string
{
    return trim(preg_replace('/[\s\p{Cc}]+/u', ' ', $text) ?? '');
}

function parse_entry(string $line): ?array
{
    $fields = explode("\t", rtrim($line, "\n"));
    if (count($fields) !== 3 || !preg_match('/^\d+$/', $fields[0])) {
        return null;
    }
    return ['time' => (int) $fields[0], 'name' => $fields[1], 'message' => $fields[2]];
}

/** The file's lines, read while no writer is at work. */
function read_lines(string $file): array
{
    $handle = @fopen($file, 'r');
    if ($handle === false) {
        throw new RuntimeException("cannot read $file");
    }
    flock($handle, LOCK_SH);
    $text = (string) stream_get_contents($handle);
    fclose($handle);
    return $text === '' ? [] : explode("\n", rtrim($text, "\n"));
}

/** Valid entries, newest first; damaged lines are left out. */
function read_entries(string $root): array
{
    return array_reverse(array_values(array_filter(array_map('parse_entry', read_lines(entries_file($root))))));
}

function append_entry(string $root, string $name, string $message): void
{
    $line = implode("\t", [time(), one_line($name), one_line($message)]) . "\n";
    if (@file_put_contents(entries_file($root), $line, FILE_APPEND | LOCK_EX) !== strlen($line)) {
        throw new RuntimeException('cannot write the entry');
    }
}

function may_sign(string $root, string $password): bool
{
    return !is_closed($root) || password_verify($password, require password_file($root));
}

function read_title(string $root): string
{
    $title = is_file(title_file($root)) ? one_line((string) file_get_contents(title_file($root))) : '';
    return $title === '' ? DEFAULT_TITLE : $title;
}
