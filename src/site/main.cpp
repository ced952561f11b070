#include "runtime/scoped_disposition.h"
#include "runtime/standard_streams.h"
#include "site/report.h"
#include "site/site_command.h"

#include <exception>

int main(int argc, char** argv) {
    openMissingStandardStreams();
    letWritesFail();
    try {
        return site::siteCommand(argc, argv);
    } catch (const std::exception& failure) {
        site::say(failure.what());
        return 1;
    }
}
