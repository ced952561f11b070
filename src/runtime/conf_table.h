#pragma once

#include <cstdint>

/// The table behind the panel's configuration file: variables by name.  Plain-function layer: no exceptions, results
/// 0 or -1 with errno, messages through nimbo_log.  Distinct tables may be used by distinct threads.
extern "C" {

struct conf_entry {
    char* name;  ///< owned by the table (malloc(3))
    char* value; ///< owned by the table (malloc(3))
};

/// Zeroed memory is an empty table.
struct conf_table {
    conf_entry* entries;    ///< owned; the slots behind `count` hold null pointers
    std::uint64_t capacity; ///< allocated entries
    std::uint64_t count;    ///< entries in use
    std::int32_t sorted;    ///< 1: ascending by name, byte by byte, so that look-up may search binarily
};

/// Makes room for one more entry.
/// \return 0, or -1 with ENOMEM after a message of level 12.
int conf_init_r(conf_table* table);

/// Adds a variable or replaces its value; both strings are copied.
/// A full table grows also where nothing is added.
/// \return 0, or -1 with ENOMEM after a message of level 12; the variables are then unchanged.
int conf_set_r(const char* name, const char* value, conf_table* table);

/// Sorts the table unless it is sorted.
void conf_finalize_r(conf_table* table);

/// \return the variable's value, owned by the table and valid until it is replaced, or null.
const char* conf_get_r(const char* name, const conf_table* table);

/// Adds the variables of a file, a later line for the same name overriding an earlier one, and sorts the table.
/// A line is a name of letters, digits and "_", white space, and a value that ends at "#" or the line's end.  Other
/// lines that are neither blank nor comments are skipped after a message of level 12.
/// \return 0, or -1 with errno after a message of level 12 when the file cannot be opened or read or memory runs out.
int conf_read_file_r(const char* path, conf_table* table);

/// Frees the entries and the table itself (malloc(3)); null is ignored.
void conf_free_r(conf_table* table);

/// strcmp(3) on the names of two conf_entry records.
int cmp_conf(const void* first, const void* second);
}
