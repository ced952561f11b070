#include "fuzz/input.h"
#include "runtime/conf_table.h"

#include <string_view>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const InputFile file(data, size);
    auto* const table = static_cast<conf_table*>(std::calloc(1, sizeof(conf_table)));
    if (table == nullptr || conf_read_file_r(file.name().c_str(), table) != 0)
        std::abort();
    for (std::uint64_t i = 0; i < table->count; ++i) {
        const conf_entry& entry = table->entries[i];
        const bool sound = (i == 0 || cmp_conf(&table->entries[i - 1], &entry) < 0) && *entry.name != '\0' &&
                           *entry.value != '\0' && std::string_view(entry.value).find('#') == std::string_view::npos &&
                           conf_get_r(entry.name, table) == entry.value;
        if (!sound)
            std::abort();
    }
    conf_free_r(table);
    return 0;
}
