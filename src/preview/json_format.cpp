#include "preview/formats.h"
#include "preview/json_text.h"

#include <algorithm>
#include <boost/json.hpp>
// The library's own code comes along here: as a shared library it would be one more for every user of this one.
#include <boost/json/src.hpp>

namespace json = boost::json;

namespace {

/// The elements of an array as text: an array of a hundred thousand objects would take many times its text in memory.
class ArrayText {
public:
    void add(const json::object& object) { text_.append(text_.empty() ? "" : ",").append(json::serialize(object)); }
    std::string text() const { return "[" + text_ + "]"; }

private:
    std::string text_;
};

json::object applicationOf(const nimbo::FSAMetaDataReader& metadata) {
    return {{"name", metadata.name},
            {"version", metadata.version},
            {"release", metadata.release},
            {"formatVersion", metadata.formatVersion},
            {"scriptLanguage", metadata.scriptLanguage}};
}

std::string mappingsOf(const Preview& preview) {
    ArrayText mappings;
    auto source = preview.mappingSources.begin();
    for (const auto& mapping : preview.metadata.webContent) {
        mappings.add({{"url", mapping.url},
                      {"path", mapping.path},
                      {"depth", mapping.depth},
                      {"writable", mapping.writable},
                      {"redirect", mapping.redirect},
                      {"sourceExists", *source ? json::value(!(*source)->isMissing()) : json::value(nullptr)}});
        ++source;
    }
    return mappings.text();
}

std::string entriesOf(const Preview& preview) {
    std::vector<std::string> urls;
    for (const auto& mapping : preview.metadata.webContent)
        urls.push_back(mapping.url);
    ArrayText entries;
    for (const auto& [path, entry] : preview.entries) {
        const bool hasSource = entry.mapping.has_value();
        json::object object{{"path", utf8(path)},
                            {"type", entry.isDirectory ? "directory" : "file"},
                            {"mode", entry.mode == 0755 ? "0755" : "0644"},
                            {"source", hasSource ? json::value(utf8(entry.source)) : json::value(nullptr)},
                            {"mapping", hasSource ? json::value(*entry.mapping) : json::value(nullptr)},
                            {"url", hasSource ? json::value(urls[*entry.mapping]) : json::value(nullptr)},
                            {"webServerWritable", entry.isOpened},
                            {"size", entry.size ? json::value(*entry.size) : json::value(nullptr)},
                            {"state", entry.state ? json::value(wordOf(*entry.state)) : json::value(nullptr)}};
        if (hasSource && !(isUtf8(path) && isUtf8(entry.source))) {
            object["pathBase64"] = base64(path);
            object["sourceBase64"] = base64(entry.source);
        }
        entries.add(object);
    }
    return entries.text();
}

json::array scriptsOf(const std::vector<std::string>& scripts) {
    json::array names;
    for (const std::string& script : scripts)
        names.emplace_back(utf8(script));
    return names;
}

/// How many entries have each state; null where none has one.
json::value statesOf(const PreviewEntries& entries) {
    json::object counts;
    bool hasSite = false;
    for (const EntryState state : entryStates) {
        const auto isSo = [&](const auto& entry) { return entry.second.state == state; };
        const auto count = std::ranges::count_if(entries, isSo);
        counts[wordOf(state)] = count;
        hasSite = hasSite || count > 0;
    }
    return hasSite ? json::value(counts) : json::value(nullptr);
}

std::string obsoleteOf(const Preview& preview) {
    if (!preview.obsolete)
        return "null";
    ArrayText obsolete;
    for (const auto& [section, path] : *preview.obsolete)
        obsolete.add({{"section", prefixOf(section)}, {"path", utf8(path.native())}});
    return obsolete.text();
}

std::string findingsOf(const Findings& findings) {
    ArrayText all;
    for (const Finding& finding : findings) {
        json::object object{{"severity", wordOf(finding.severity)},
                            {"code", finding.code},
                            {"subject", utf8(finding.subject)},
                            {"text", utf8(finding.text)}};
        if (!isUtf8(finding.subject))
            object["subjectBase64"] = base64(finding.subject);
        all.add(object);
    }
    return all.text();
}

} // namespace

std::string jsonOf(const Preview& preview) {
    return withJsonEscapes("{\"application\":" + json::serialize(applicationOf(preview.metadata)) +
                           ",\"mappings\":" + mappingsOf(preview) + ",\"entries\":" + entriesOf(preview) +
                           ",\"states\":" + json::serialize(statesOf(preview.entries)) + ",\"obsolete\":" +
                           obsoleteOf(preview) + ",\"scripts\":" + json::serialize(scriptsOf(preview.scripts)) +
                           ",\"fragment\":" + json::serialize(json::value(utf8(preview.fragment))) +
                           ",\"findings\":" + findingsOf(preview.findings) + "}\n");
}
