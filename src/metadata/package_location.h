#pragma once

#include <optional>
#include <string>

/// The package directory in an application's full name: what follows "file:///", as it stands, at most 4096 bytes.
/// An absolute directory makes four slashes: "file:////opt/a" gives "/opt/a", "file:///opt/a" gives "opt/a".
/// \return nothing when the name does not begin so; the empty string when nothing follows.
std::optional<std::string> packageDirectoryOf(const std::string& fullName);

/// The metadata document of a package.
std::string metadataFileOf(const std::string& packageDir);

/// The directory of a package's scripts.
std::string scriptsDirectoryOf(const std::string& packageDir);

/// The script of a package whose format names none (FSAMetaDataReader::callerChoosesScript).
inline constexpr const char* fixedScript = "configure";

/// packageDirectoryOf for callers with a buffer; no command is one.
/// \param packageDir receives at most 4096 bytes with strncpy(3) semantics: a location of 4096 bytes or more is cut
///        and not terminated, so a buffer of 4097 zeroed bytes is always a string afterwards.
/// \return false, with the buffer untouched, when the name does not begin with "file:///" or nothing follows.
bool get_trx_application_path(char* packageDir, const char* fullName);
