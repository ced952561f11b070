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
#include <string_view>

namespace {

constexpr int detailLevel = 12; // not printed at the default threshold
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

const char* skipSpace(const char* text) {
    while (isSpace(*text))
        ++text;
    return text;
}

int outOfMemory(const char* format) {
    nimbo_log(detailLevel, format, std::strerror(ENOMEM));
    errno = ENOMEM;
    return -1;
}

conf_entry* find(const char* name, const conf_table& table) {
    const conf_entry wanted{const_cast<char*>(name), nullptr};
    std::size_t count = table.count;
    if (count == 0)
        return nullptr;
    void* const found = table.sorted != 0 ? bsearch(&wanted, table.entries, count, sizeof(conf_entry), cmp_conf)
                                          : lfind(&wanted, table.entries, &count, sizeof(conf_entry), cmp_conf);
    return static_cast<conf_entry*>(found);
}

/// Adds a variable without looking for an earlier one of the same name.
int append(std::string_view name, std::string_view value, conf_table& table) {
    if (conf_init_r(&table) != 0)
        return -1;
    CMemory<char> ownName(strndup(name.data(), name.size()));
    CMemory<char> ownValue(strndup(value.data(), value.size()));
    if (ownName == nullptr || ownValue == nullptr)
        return outOfMemory("Unable to form configuration: %s");
    table.entries[table.count++] = {ownName.release(), ownValue.release()};
    table.sorted = 0;
    return 0;
}

void freeEntry(conf_entry& entry) {
    std::free(std::exchange(entry.name, nullptr));
    std::free(std::exchange(entry.value, nullptr));
}

/// Sorts the table and keeps the last of the entries that share a name.  One pass at the end of a file costs less than
/// a search through the table for every line.
void sortAndOverride(conf_table& table) {
    conf_entry* const begin = table.entries;
    conf_entry* const end = begin + table.count;
    std::stable_sort(begin, end, [](const conf_entry& a, const conf_entry& b) { return cmp_conf(&a, &b) < 0; });
    conf_entry* kept = begin;
    for (conf_entry* entry = begin; entry != end; ++entry) {
        if (entry + 1 != end && cmp_conf(entry, entry + 1) == 0)
            freeEntry(*entry);
        else
            std::swap(*kept++, *entry);
    }
    table.count = static_cast<std::uint64_t>(kept - begin);
    table.sorted = 1;
}

/// The value that begins at `text`: up to a "#" or the end of the line.  The line break counts as a blank of the value.
/// An odd number of blanks at the value's end loses its last one, an even number stays: "x\n" gives "x", but "x \n"
/// stays "x \n".  Files in use may count on this rule.
std::string_view valueOf(const char* text) {
    std::string_view value(text, std::strcspn(text, "#"));
    const auto end = std::find_if_not(value.rbegin(), value.rend(), isSpace);
    const auto blanks = static_cast<std::size_t>(end - value.rbegin());
    value.remove_suffix(blanks % 2);
    return value;
}

int readLine(const char* line, conf_table& table) {
    const char* const definition = skipSpace(line);
    if (*definition == '\0' || *definition == '#')
        return 0;
    const char* end = definition;
    while (isNameCharacter(*end))
        ++end;
    if (!isSpace(*end)) {
        nimbo_log(detailLevel, "Invalid variable definition %s\nExpected a space after variable name\n", definition);
        return 0;
    }
    const char* const value = skipSpace(end);
    if (*value == '\0' || *value == '#') {
        nimbo_log(detailLevel, "Invalid variable definition %s\nExpected a value", definition);
        return 0;
    }
    return append({definition, static_cast<std::size_t>(end - definition)}, valueOf(value), table);
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
    conf_entry* const existing = find(name, *table);
    if (existing == nullptr)
        return append(name, value, *table);
    CMemory<char> ownValue(strdup(value));
    if (ownValue == nullptr)
        return outOfMemory("Unable to form configuration: %s");
    std::free(std::exchange(existing->value, ownValue.release()));
    return 0;
}

void conf_finalize_r(conf_table* table) {
    if (table->sorted == 0)
        sortAndOverride(*table);
}

const char* conf_get_r(const char* name, const conf_table* table) {
    const conf_entry* const found = find(name, *table);
    return found == nullptr ? nullptr : found->value;
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
    while (getline(&line.text, &line.size, file.get()) >= 0)
        if (readLine(line.text, *table) != 0)
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
    for (std::uint64_t i = 0; i < table->capacity; ++i)
        freeEntry(table->entries[i]);
    std::free(table->entries);
    std::free(table);
}

int cmp_conf(const void* first, const void* second) {
    return std::strcmp(static_cast<const conf_entry*>(first)->name, static_cast<const conf_entry*>(second)->name);
}
