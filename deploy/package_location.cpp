#include "deploy/package_location.h"

#include <cstring>
#include <string_view>

bool get_trx_application_path(char* packageDir, const char* fullName) {
    constexpr std::string_view prefix = "file:///";
    constexpr std::size_t limit = 4096;
    const std::string_view name(fullName);
    if (name.size() <= prefix.size() || !name.starts_with(prefix))
        return false;
    std::strncpy(packageDir, fullName + prefix.size(), limit);
    return true;
}
