#include "site/installed_files.h"

#include "site/text_lines.h"

#include <algorithm>
#include <stdexcept>
#include <string_view>
#include <utility>

namespace site {

namespace {

constexpr std::string_view fileWord = "file";
constexpr std::string_view directoryWord = "directory";
constexpr std::string_view placeWord = "place"; // a directory that was there
constexpr std::string_view endLine = "end";     // a file that lost its last lines would lose them unnoticed

} // namespace

std::string textOf(const InstalledFiles& files) {
    std::string text;
    for (const InstalledEntry& entry : files) {
        LineWriter line(text);
        if (entry.isDirectory)
            line.word(entry.wasThere ? placeWord : directoryWord).number(entry.mode).number(entry.opened);
        else
            line.word(fileWord).number(entry.mode).number(entry.size).number(entry.time).number(entry.sourceTime);
        line.path(entry.path);
    }
    return text.append(endLine) + '\n';
}

InstalledFiles installedFilesOf(const FilesText& list) {
    InstalledFiles files;
    files.reserve(static_cast<std::size_t>(std::ranges::count(list.text, '\n')));
    try {
        std::string_view rest = list.text;
        for (std::string_view next = takeLine(rest); next != endLine; next = takeLine(rest)) {
            LineReader line(next);
            InstalledEntry entry;
            const std::string kind = line.word();
            entry.isDirectory = kind == directoryWord || kind == placeWord;
            if (!entry.isDirectory && kind != fileWord)
                throw std::runtime_error("an unknown word: " + kind);
            entry.mode = line.number<mode_t>();
            if (entry.isDirectory) {
                entry.wasThere = kind == placeWord;
                entry.opened = line.number<mode_t>();
            } else {
                entry.size = line.number<std::int64_t>();
                entry.time = line.number<Nanoseconds>();
                entry.sourceTime = line.number<Nanoseconds>();
            }
            entry.path = line.path();
            files.push_back(std::move(entry));
        }
        if (!rest.empty())
            throw std::runtime_error("lines behind its end");
    } catch (const std::runtime_error& failure) {
        throw std::runtime_error(list.file + " is no list of files: " + failure.what());
    }
    return files;
}

} // namespace site
