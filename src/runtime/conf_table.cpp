#include "runtime/conf_table.h"

#include "runtime/handles.h"
#include "runtime/utility_log.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <search.h>
#include <utility>

// A table is C's: a caller makes one of zeroed memory from malloc(3), may walk its entries, and gives all of it back by
// conf_free_r, which frees the record, too.  So names, values and entries are of malloc(3), and the C library's search
// and sort, for which cmp_conf is made, work on them.

namespace {

constexpr int detailLevel = 12; // beyond those of syslog(3): not printed at the default threshold
constexpr std::uint64_t growth = 20;

struct CloseFile {
    void operator()(FILE* file) const noexcept { (void)std::fclose(file); }
};

/// The buffer that getline(3) keeps from line to line.
struct LineBuffer {
    LineBuffer() = default;
    LineBuffer(const LineBuffer&) = delete;
    LineBuffer& operator=(const LineBuffer&) = delete;
    ~LineBuffer() { std::free(text); }

    char* text = nullptr;
    std::size_t size = 0;
};

bool isSpace(char character) {
    return std::isspace(static_cast<unsigned char>(character)) != 0;
}

bool isNameCharacter(char character) {
    return std::isalnum(static_cast<unsigned char>(character)) != 0 || character == '_';
}

char* skipSpace(char* text) {
    while (isSpace(*text))
        ++text;
    return text;
}

int outOfMemory(const char* format) {
    nimbo_log(detailLevel, format, std::strerror(ENOMEM));
    errno = ENOMEM;
    return -1;
}

/// The length of the value that begins at `text`: up to a "#" or the end of the line.  The line break counts as a blank
/// of the value.  An odd number of blanks at the value's end loses its last one, an even number stays: "x\n" gives "x",
/// but "x \n" stays "x \n".  Files in use may count on this rule.
std::size_t valueLength(const char* text) {
    const std::size_t length = std::strcspn(text, "#");
    std::size_t end = length;
    while (end > 0 && isSpace(text[end - 1]))
        --end;
    return length - (length - end) % 2;
}

int readLine(char* line, conf_table* table) {
    char* const name = skipSpace(line);
    if (*name == '\0' || *name == '#')
        return 0;
    char* end = name;
    while (isNameCharacter(*end))
        ++end;
    if (!isSpace(*end)) {
        nimbo_log(detailLevel, "Invalid variable definition %s\nExpected a space after variable name\n", name);
        return 0;
    }
    char* const value = skipSpace(end);
    if (*value == '\0' || *value == '#') {
        nimbo_log(detailLevel, "Invalid variable definition %s\nExpected a value", name);
        return 0;
    }
    *end = '\0';
    value[valueLength(value)] = '\0';
    return conf_set_r(name, value, table);
}

} // namespace

int conf_init_r(conf_table* table) {
    if (table->entries != nullptr && table->count < table->capacity)
        return 0;
    const bool isFirst = table->entries == nullptr;
    const std::uint64_t capacity = isFirst ? growth : std::max(table->capacity * 2, table->capacity + growth);
    auto* const entries = static_cast<conf_entry*>(reallocarray(table->entries, capacity, sizeof(conf_entry)));
    if (entries == nullptr)
        return outOfMemory("Unable to read configuration: %s");
    std::fill(entries + (isFirst ? 0 : table->capacity), entries + capacity, conf_entry{});
    table->entries = entries;
    table->capacity = capacity;
    if (isFirst) {
        table->count = 0;
        table->sorted = 1;
    }
    return 0;
}

int conf_set_r(const char* name, const char* value, conf_table* table) {
    if (conf_init_r(table) != 0)
        return -1;
    CMemory<char> ownName(strdup(name));
    CMemory<char> ownValue(strdup(value));
    if (ownName == nullptr || ownValue == nullptr)
        return outOfMemory("Unable to form configuration: %s");
    const conf_entry wanted{ownName.get(), nullptr};
    std::size_t count = table->count;
    auto* const existing =
        static_cast<conf_entry*>(lfind(&wanted, table->entries, &count, sizeof(conf_entry), cmp_conf));
    if (existing != nullptr) {
        std::free(std::exchange(existing->value, ownValue.release()));
    } else {
        table->entries[table->count++] = {ownName.release(), ownValue.release()};
        table->sorted = 0;
    }
    return 0;
}

void conf_finalize_r(conf_table* table) {
    if (table->sorted == 0 && table->count > 0)
        qsort(table->entries, table->count, sizeof(conf_entry), cmp_conf);
    table->sorted = 1;
}

const char* conf_get_r(const char* name, const conf_table* table) {
    const conf_entry wanted{const_cast<char*>(name), nullptr};
    std::size_t count = table->count;
    if (count == 0)
        return nullptr;
    const void* const found = table->sorted != 0 ? bsearch(&wanted, table->entries, count, sizeof(conf_entry), cmp_conf)
                                                 : lfind(&wanted, table->entries, &count, sizeof(conf_entry), cmp_conf);
    return found == nullptr ? nullptr : static_cast<const conf_entry*>(found)->value;
}

int conf_read_file_r(const char* path, conf_table* table) {
    const std::unique_ptr<FILE, CloseFile> file(std::fopen(path, "rte"));
    if (file == nullptr) {
        const int error = errno;
        nimbo_log(detailLevel, "unable to open configuration file %s: %s\n", path, std::strerror(error));
        errno = error;
        return -1;
    }
    LineBuffer line;
    // What follows a NUL byte in a line is not seen: names and values are C strings.
    // Where reading fails in the middle of a line, getline(3) hands out what it has of it: that is no line.
    while (getline(&line.text, &line.size, file.get()) >= 0 && std::ferror(file.get()) == 0)
        if (readLine(line.text, table) != 0)
            return -1;
    if (std::feof(file.get()) == 0) {
        const int error = errno;
        nimbo_log(detailLevel, "Unable to read configuration file: %s", std::strerror(error));
        errno = error;
        return -1;
    }
    conf_finalize_r(table);
    return 0;
}

void conf_free_r(conf_table* table) {
    if (table == nullptr)
        return;
    for (std::uint64_t i = 0; i < table->capacity; ++i) {
        std::free(table->entries[i].name);
        std::free(table->entries[i].value);
    }
    std::free(table->entries);
    std::free(table);
}

int cmp_conf(const void* first, const void* second) {
    return std::strcmp(static_cast<const conf_entry*>(first)->name, static_cast<const conf_entry*>(second)->name);
}
