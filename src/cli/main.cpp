#include "cli/dispatcher.h"
#include "runtime/error_stream.h"
#include "runtime/errors.h"
#include "runtime/fatal_error.h"
#include "runtime/scoped_disposition.h"
#include "runtime/standard_streams.h"

#include <exception>
#include <iostream>

int main(int argc, char** argv) {
    openMissingStandardStreams();
    try {
        letWritesFail();
        return do_main(argc, argv);
    } catch (const nimbo::NimboUtilException& exception) {
        std::cerr << exception.what() << '\n';
        return 1;
    } catch (const std::exception& exception) {
        nimbo::reportException<std::exception>(exception);
        return 1;
    } catch (...) {
        nimbo::uerr << "UNSPECIFIED ERROR OCCURED" << std::endl;
        return 2;
    }
}
