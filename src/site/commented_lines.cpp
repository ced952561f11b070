#include "site/commented_lines.h"

#include <sstream>
#include <stdexcept>

namespace site {

void forEachLine(const std::string& text, const std::string& file,
                 const std::function<void(const std::string& line)>& take) {
    std::istringstream lines(text);
    int number = 0;
    for (std::string line; std::getline(lines, line);) {
        ++number;
        if (line.empty() || line.front() == '#')
            continue;
        try {
            take(line);
        } catch (const std::exception& failure) {
            throw std::runtime_error(file + ", line " + std::to_string(number) + ": " + failure.what());
        }
    }
}

} // namespace site
