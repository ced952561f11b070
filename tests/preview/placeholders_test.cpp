#include "preview/placeholders.h"
#include "tests/support/support.h"

#include <boost/algorithm/string/join.hpp>

class Placeholders : public DirectoryTest {};

TEST_F(Placeholders, OnlyCloseOrDescribeTheirDirectory) {
    struct File {
        std::string name;
        std::string content;
        bool isPlaceholder = true;
    };
    const std::vector<File> files{
        {.name = "data", .content = ""},
        {.name = "index.html", .content = "<!DOCTYPE html><html><body bgcolor=\"#FFFFFF\"></body></html>\n"},
        {.name = "index.html", .content = "<!-- <p>$a</p> --><p>Directory access is forbidden.</p>\n"},
        {.name = "index.html", .content = "<p>Welcome</p>\n", .isPlaceholder = false},
        {.name = "index.php", .content = "<?php\n// Silence is golden.\n"},
        {.name = "index.php", .content = "<?php defined('BASE') or exit('No access'); ?>"},
        {.name = "index.php", .content = "<?php /* $x */\nheader('Date: ' . date('D') . ' GMT');\nexit;\n"},
        {.name = "index.php", .content = "<?php return array('a' => 1);\n", .isPlaceholder = false},
        {.name = "index.php", .content = "<?= $page ?>", .isPlaceholder = false},
        {.name = "settings.php", .content = "<?php\n", .isPlaceholder = false},
        {.name = "index.html", .content = std::string(4096, '\n')},
        {.name = "index.html", .content = std::string(4097, '\n'), .isPlaceholder = false},
        {.name = "index.html", .content = boost::join(Words(2048, "a"), " "), .isPlaceholder = false}, // one long line
        {.name = ".htaccess", .content = "<IfModule x>\n# all\nRequire all denied\n</IfModule>\n"},
        {.name = ".htaccess", .content = "RewriteEngine on\n", .isPlaceholder = false},
    };
    for (const auto& [name, content, isOne] : files) {
        const fs::path path = base / name;
        writeFile(path, content);
        EXPECT_EQ(isPlaceholder(path.string(), content.size()), isOne) << name << ": " << content;
    }
}
