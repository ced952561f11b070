#include "site/record.h"

#include "site/durable_files.h"

#include <array>
#include <boost/json.hpp>
#include <stdexcept>

namespace json = boost::json;

namespace site {

namespace {

struct TextField {
    const char* name;
    std::string Record::*member;
};

constexpr std::array textFields{
    TextField{"package", &Record::package},           TextField{"fingerprint", &Record::fingerprint},
    TextField{"account", &Record::account},           TextField{"script", &Record::script},
    TextField{"language", &Record::language},         TextField{"secrets", &Record::secrets},
    TextField{"documentRoot", &Record::documentRoot}, TextField{"title", &Record::title},
    TextField{"version", &Record::version},           TextField{"fragment", &Record::fragment},
    TextField{"installed", &Record::installed},       TextField{"changed", &Record::changed},
    TextField{"journal", &Record::journal},
};

} // namespace

bool isSameWish(const Record& a, const Record& b) {
    return a.package == b.package && a.fingerprint == b.fingerprint && a.account == b.account && a.uid == b.uid &&
           a.script == b.script && a.language == b.language && a.parameters == b.parameters && a.secrets == b.secrets &&
           a.documentRoot == b.documentRoot && a.webserverWrite == b.webserverWrite;
}

std::string textOf(const Record& record) {
    json::object object;
    for (const TextField& field : textFields)
        object[field.name] = record.*field.member;
    object["uid"] = record.uid;
    object["parameters"] = json::array(record.parameters.begin(), record.parameters.end());
    object["webserverWrite"] = record.webserverWrite;
    return json::serialize(object) + '\n';
}

Record recordOf(const std::string& text, const std::string& file) {
    // Names are bytes, and those of parameters are the caller's.
    json::parse_options bytes;
    bytes.allow_invalid_utf8 = true;
    Record record;
    try {
        const json::value value = json::parse(text, {}, bytes);
        const json::object& object = value.as_object();
        for (const TextField& field : textFields)
            record.*field.member = std::string(object.at(field.name).as_string());
        record.uid = object.at("uid").to_number<uid_t>();
        for (const json::value& parameter : object.at("parameters").as_array())
            record.parameters.emplace_back(parameter.as_string());
        record.webserverWrite = object.at("webserverWrite").as_bool();
    } catch (const boost::system::system_error& failure) { // whose text names the library's own sources
        throw std::runtime_error(file + " is no record: " + failure.code().message());
    } catch (const std::exception& failure) {
        throw std::runtime_error(file + " is no record: " + failure.what());
    }
    return record;
}

std::optional<Record> readRecord(const std::string& file) {
    const std::optional<std::string> text = readIfThere(file);
    return text ? std::optional(recordOf(*text, file)) : std::nullopt;
}

} // namespace site
