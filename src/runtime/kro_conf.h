#pragma once

/// The panel's runtime configuration, "/etc/kro/kro.conf".  The first look-up reads it; when that fails, the next one
/// tries again.  A known variable has a compile-time default, so that a caller always gets a usable value.  Returned
/// strings live as long as the process.  Single-threaded use only.
extern "C" {

/// Indices of the variables that the commands use.
enum {
    KRO_CONF_CLIENT_PHP_BIN = 3,  ///< the PHP command-line interpreter
    KRO_CONF_HTTPD_VHOSTS_D = 25, ///< the directory of all virtual hosts
    KRO_CONF_PRODUCT_ROOT_D = 26, ///< the panel's own installation
};

/// \return the file's value of the variable, or null.
const char* kroConfGet(const char* name);

/// The same by index, which must be one of the table's (0 to 29).
const char* kroConfGetByIndex(int index);

/// \return the file's value or else the default; never null for an index of the table.
const char* kroConfGetDefaultByIndex(int index);

/// \return the same by name, or null after a message of level 3 for a name that the table does not know, whether the
///         file defines it or not.
const char* kroConfGetDefault(const char* name);

/// Reads the file unless that has succeeded before.
/// \return 0 or -1.
int autoprepend();
}
