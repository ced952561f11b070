#include "preview/preview_output.h"
#include "preview/text.h"

#include <boost/json.hpp>
// The library's own code comes along here: as a shared library it would be one more for every user of this one.
#include <boost/json/src.hpp>

namespace json = boost::json;

namespace {

json::string utf8(const std::string& text) {
    return asUtf8(text).c_str();
}

json::value orNull(const std::optional<std::string>& text) {
    return text ? json::value(utf8(*text)) : json::value(nullptr);
}

json::object applicationOf(const nimbo::FSAMetaDataReader& metadata) {
    return {{"name", metadata.name},
            {"version", metadata.version},
            {"release", metadata.release},
            {"formatVersion", metadata.formatVersion},
            {"scriptLanguage", metadata.scriptLanguage}};
}

json::array mappingsOf(const Preview& preview) {
    json::array mappings;
    auto exists = preview.sourceExists.begin();
    for (const auto& mapping : preview.metadata.webContent) {
        mappings.push_back({{"url", mapping.url},
                            {"path", mapping.path},
                            {"depth", mapping.depth},
                            {"writable", mapping.writable},
                            {"redirect", mapping.redirect},
                            {"sourceExists", *exists ? json::value(**exists) : json::value(nullptr)}});
        ++exists;
    }
    return mappings;
}

json::array entriesOf(const Preview& preview) {
    json::array entries;
    entries.reserve(preview.entries.size());
    for (const auto& [path, entry] : preview.entries) {
        json::object object{{"path", utf8(path)},
                            {"type", entry.isDirectory ? "directory" : "file"},
                            {"mode", entry.mode == 0755 ? "0755" : "0644"},
                            {"source", orNull(entry.source)},
                            {"url", entry.url != nullptr ? json::value(*entry.url) : json::value(nullptr)},
                            {"webServerWritable", entry.isOpened},
                            {"size", entry.size ? json::value(*entry.size) : json::value(nullptr)}};
        if (entry.source && !(isUtf8(path) && isUtf8(*entry.source))) {
            object["pathBase64"] = base64(path);
            object["sourceBase64"] = base64(*entry.source);
        }
        entries.push_back(std::move(object));
    }
    return entries;
}

json::array warningsOf(const Preview& preview) {
    json::array warnings;
    for (const PreviewWarning& warning : preview.warnings) {
        json::object object{{"code", warning.code}, {"subject", utf8(warning.subject)}, {"text", utf8(warning.text)}};
        if (!isUtf8(warning.subject))
            object["subjectBase64"] = base64(warning.subject);
        warnings.push_back(std::move(object));
    }
    return warnings;
}

} // namespace

std::string jsonOf(const Preview& preview) {
    const json::object object{{"application", applicationOf(preview.metadata)},
                              {"mappings", mappingsOf(preview)},
                              {"entries", entriesOf(preview)},
                              {"fragment", utf8(preview.fragment)},
                              {"warnings", warningsOf(preview)}};
    return json::serialize(object) + "\n";
}
