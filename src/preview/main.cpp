#include "metadata/exceptions.h"
#include "preview/preview_command.h"
#include "preview/text.h"
#include "runtime/scoped_disposition.h"

#include <exception>
#include <iostream>

namespace {

int refuse(const char* reason) {
    std::cerr << "larkspur-preview: " << escaped(reason) << '\n';
    return 2;
}

} // namespace

int main(int argc, char** argv) {
    try {
        // Missing standard streams stay missing: the preview writes no file, and its output has to fail without one.
        letWritesFail();
        return previewCommand(argc, argv);
    } catch (const nimbo::FSAXMLException& exception) {
        return refuse(exception.what());
    } catch (const std::exception& exception) {
        return refuse(exception.what());
    }
}
