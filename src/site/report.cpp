#include "site/report.h"

#include "preview/text.h"
#include "runtime/utility_log.h"

#include <iostream>
#include <syslog.h>
#include <unistd.h>

namespace site {

void say(const std::string& text) {
    std::cerr << "larkspur-site: " << escaped(text) << std::endl;
}

void sayAsBefore(const Application& application) {
    std::cerr << escaped(application.title()) << asBeforeEnd << std::endl;
}

void sayFailed(const std::string& host) {
    std::cerr << failedBegin << escaped(host) << std::endl;
}

void sayProgress(const Application& application, const std::string& step) {
    static const bool isTerminal = isatty(STDERR_FILENO) != 0;
    if (isTerminal)
        std::cerr << escaped(application.title() + ": " + step) << std::endl;
}

void logAct(const Application& application, const std::string& what) {
    nimbo_log_init(nullptr, LOG_INFO, LOG_DAEMON, 0, "larkspur-site");
    nimbo_log(LOG_INFO, "%s: %s", escaped(application.title()).c_str(), escaped(what).c_str());
    // What other rooms log in this process is for the person who has called it.
    nimbo_log_init("console", LOG_INFO, LOG_DAEMON, 0, nullptr);
}

} // namespace site
