<?php
declare(strict_types=1);

require __DIR__ . '/store.php';

function html(string $text): string
{
    return htmlspecialchars($text, ENT_QUOTES | ENT_SUBSTITUTE, 'UTF-8');
}

function field(string $name): string
{
    $value = $_POST[$name] ?? '';
    return is_string($value) ? one_line($value) : '';
}

/** Saves the entry of a submitted form and leads the visitor back to the page; a refusal returns its reason. */
function sign(string $name, string $message): string
{
    if ($name === '' || $message === '') {
        http_response_code(422);
        return 'Please give a name and a message.';
    }
    if (strlen($name) > MAX_NAME || strlen($message) > MAX_MESSAGE) {
        http_response_code(422);
        return 'That is too long for this book.';
    }
    if (!may_sign(__DIR__, field('password'))) {
        http_response_code(403);
        return 'That is not the password of this book.';
    }
    try {
        append_entry(__DIR__, $name, $message);
    } catch (RuntimeException $failure) {
        http_response_code(500);
        return 'The entry could not be saved.';
    }
    header('Location: ' . ($_SERVER['SCRIPT_NAME'] ?? 'index.php'), true, 303);
    exit;
}

$name = field('name');
$message = field('message');
$problem = ($_SERVER['REQUEST_METHOD'] ?? 'GET') === 'POST' ? sign($name, $message) : '';

try {
    $entries = read_entries(__DIR__);
} catch (RuntimeException $failure) {
    $entries = [];
    $problem = 'The book cannot be read at the moment.';
}
$title = html(read_title(__DIR__));
header('Content-Type: text/html; charset=utf-8');
?>
<!DOCTYPE html>
<html lang="en">
<head>
  <meta charset="utf-8">
  <title><?= $title ?></title>
  <link rel="stylesheet" href="style.css">
</head>
<body>
  <h1><?= $title ?></h1>
<?php if ($problem !== ''): ?>
  <p class="problem"><?= html($problem) ?></p>
<?php endif ?>
  <form method="post">
    <label>Name <input name="name" maxlength="<?= MAX_NAME ?>" value="<?= html($name) ?>" required></label>
    <label>Message <textarea name="message" maxlength="<?= MAX_MESSAGE ?>" required><?= html($message) ?></textarea></label>
<?php if (is_closed(__DIR__)): ?>
    <label>Password <input name="password" type="password" required></label>
<?php endif ?>
    <button>Sign</button>
  </form>
<?php foreach ($entries as $entry): ?>
  <article>
    <p><?= html($entry['message']) ?></p>
    <footer><?= html($entry['name']) ?>, <time><?= gmdate('Y-m-d H:i', $entry['time']) ?></time></footer>
  </article>
<?php endforeach ?>
  <p><a href="about.html">About</a> · <a href="cgi-bin/recent.cgi">Statistics</a></p>
</body>
</html>
