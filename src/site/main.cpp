#include "runtime/scoped_disposition.h"
#include "runtime/standard_streams.h"
#include "site/report.h"
#include "site/site_command.h"

#include <csignal>
#include <exception>

int main(int argc, char** argv) {
    openMissingStandardStreams();
    // What this program starts gets the defaults, whatever the caller ignores: a systemd unit ignores SIGPIPE.
    for (const int signal : {SIGPIPE, SIGXFSZ})
        (void)std::signal(signal, SIG_DFL);
    letWritesFail();
    try {
        return site::siteCommand(argc, argv);
    } catch (const std::exception& failure) {
        site::say(failure.what());
        return 1;
    }
}
