#pragma once

/// Turns an application's full name, "file:///" and a directory, into the package directory: what follows the eight
/// characters of the prefix, as it stands.
/// \param packageDir receives at most 4096 bytes with strncpy(3) semantics: a location of 4096 bytes or more is cut
///        and not terminated, so a buffer of 4097 zeroed bytes is always a string afterwards.
/// \return false, with the buffer untouched, when the name does not begin with the prefix or has nothing after it.
bool get_trx_application_path(char* packageDir, const char* fullName);
