#include "webserver/fragment.h"
#include "metadata/exceptions.h"

#include <cstdlib>
#include <fuzzer/FuzzedDataProvider.h>
#include <sstream>
#include <vector>

namespace {

template <class Handler>
void fillHandlers(FuzzedDataProvider& input, std::list<Handler>& handlers) {
    while (input.ConsumeBool()) {
        handlers.emplace_back().disabled = input.ConsumeBool();
        while (input.ConsumeBool())
            handlers.back().extensions.push_back({input.ConsumeRandomLengthString()});
    }
}

/// Every section that a line opens is closed by a later one, in the reverse order.
bool isBalanced(const std::string& directives) {
    std::vector<std::string> open{""};
    std::istringstream lines(directives);
    for (std::string line; std::getline(lines >> std::ws, line);) {
        if (line.starts_with("</") && line != "</" + open.back() + ">")
            return false;
        if (line.starts_with("</"))
            open.pop_back();
        else if (line.starts_with('<'))
            open.push_back(line.substr(1, line.find(' ') - 1));
    }
    return open.size() == 1;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    FuzzedDataProvider input(data, size);
    const FragmentSettings settings{input.ConsumeBool(), input.ConsumeBool(), "/srv/www",
                                    input.ConsumeBool() ? "/app" : ""};
    std::list<nimbo::FSAMetaDataWebContent> mappings;
    while (input.remaining_bytes() > 0) {
        nimbo::FSAMetaDataWebContent& mapping = mappings.emplace_back();
        mapping.url = "/" + input.ConsumeRandomLengthString();
        mapping.redirect = input.ConsumeBool() ? input.ConsumeRandomLengthString() : "";
        fillHandlers(input, mapping.phpHandlers);
        fillHandlers(input, mapping.cgiHandlers);
        for (auto& handler : mapping.cgiHandlers)
            handler.allFiles = input.ConsumeBool();
    }
    try {
        if (!isBalanced(fragmentDirectives(mappings, settings)))
            std::abort();
    } catch (const nimbo::FSAXMLException&) {
    }
    return 0;
}
