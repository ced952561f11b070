#include "site/record.h"

#include "site/durable_files.h"

#include <array>
#include <boost/json.hpp>
#include <stdexcept>

namespace json = boost::json;

namespace site {

namespace {

template <class Owner>
struct TextField {
    const char* name;
    std::string Owner::*member;
};

using Terms = Record::Terms;

constexpr std::array termFields{
    TextField<Terms>{"package", &Terms::package},           TextField<Terms>{"fingerprint", &Terms::fingerprint},
    TextField<Terms>{"account", &Terms::account},           TextField<Terms>{"script", &Terms::script},
    TextField<Terms>{"language", &Terms::language},         TextField<Terms>{"secrets", &Terms::secrets},
    TextField<Terms>{"documentRoot", &Terms::documentRoot},
};

constexpr std::array otherFields{
    TextField<Record>{"application", &Record::application}, TextField<Record>{"title", &Record::title},
    TextField<Record>{"version", &Record::version},         TextField<Record>{"fragment", &Record::fragment},
    TextField<Record>{"installed", &Record::installed},     TextField<Record>{"changed", &Record::changed},
    TextField<Record>{"journal", &Record::journal},
};

} // namespace

std::string textOf(const Record& record) {
    json::object object;
    for (const auto& field : termFields)
        object[field.name] = record.terms.*field.member;
    for (const auto& field : otherFields)
        object[field.name] = record.*field.member;
    object["uid"] = record.terms.uid;
    object["parameters"] = json::array(record.terms.parameters.begin(), record.terms.parameters.end());
    object["webserverWrite"] = record.terms.webserverWrite;
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
        for (const auto& field : termFields)
            record.terms.*field.member = std::string(object.at(field.name).as_string());
        for (const auto& field : otherFields)
            record.*field.member = std::string(object.at(field.name).as_string());
        record.terms.uid = object.at("uid").to_number<uid_t>();
        for (const json::value& parameter : object.at("parameters").as_array())
            record.terms.parameters.emplace_back(parameter.as_string());
        record.terms.webserverWrite = object.at("webserverWrite").as_bool();
    } catch (const boost::system::system_error& failure) { // whose text names the library's own sources
        throw std::runtime_error(file + " is no record: " + failure.code().message());
    } catch (const std::exception& failure) {
        throw std::runtime_error(file + " is no record: " + failure.what());
    }
    return record;
}

std::optional<Record> readRecord(const Places& places) {
    const std::optional<std::string> text = readIfThere(places.record);
    if (!text)
        return std::nullopt;
    Record record = recordOf(*text, places.record);
    if (record.application != places.applicationTitle)
        throw RecordOfOther(places.record + " is the record of " + record.application);
    return record;
}

} // namespace site
