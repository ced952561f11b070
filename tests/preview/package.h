#pragma once

#include "tests/support/support.h"

/// Mappings, as packages of these tests have them.
inline const std::string rootMapping = "<mapping url='/' path='htdocs'/>";
inline const std::string writable = "<php:permissions writable='true'/>";

/// A mapping that is opened to the web server, with other elements in it.
inline std::string openMapping(const std::string& url, const std::string& path = "open",
                               const std::string& inner = "") {
    return "<mapping url='" + url + "' path='" + path + "'>" + writable + inner + "</mapping>";
}

/// Makes a package of the document, htdocs/index.php and the entries, in place of what is there.
inline void makePackage(const fs::path& package, const std::string& document, const Words& entries = {}) {
    fs::remove_all(package);
    make(package, joined({"htdocs/index.php"}, entries));
    writeFile(package / "APP-META.xml", document);
}

inline Outcome preview(const Words& words) {
    return run(joined({LARKSPUR_PREVIEW}, words));
}

class Preview : public DirectoryTest {
protected:
    const fs::path package = base / "package";
    const fs::path site = base / "site"; ///< the document root
    const fs::path list = base / "list.xml";
};
