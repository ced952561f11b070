#include "metadata/package_location.h"

#include "files/paths.h"

#include <cstring>
#include <string_view>

constexpr std::size_t mostBytes = 4096;

std::optional<std::string> packageDirectoryOf(const std::string& fullName) {
    constexpr std::string_view prefix = "file:///";
    if (!fullName.starts_with(prefix))
        return std::nullopt;
    return fullName.substr(prefix.size(), mostBytes);
}

std::string metadataFileOf(const std::string& packageDir) {
    return joined(packageDir, "APP-META.xml");
}

std::string scriptsDirectoryOf(const std::string& packageDir) {
    return joined(packageDir, "scripts");
}

bool get_trx_application_path(char* packageDir, const char* fullName) {
    const std::optional<std::string> directory = packageDirectoryOf(fullName);
    if (!directory || directory->empty())
        return false;
    std::strncpy(packageDir, directory->c_str(), mostBytes);
    return true;
}
