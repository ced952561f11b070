#pragma once

#include "preview/text.h"

#include <boost/json/string.hpp>

/// A name as JSON can hold it, as of asUtf8.
inline boost::json::string utf8(std::string_view text) {
    return boost::json::string(asUtf8(text));
}
