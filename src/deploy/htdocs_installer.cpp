#include "deploy/htdocs_installer.h"

#include "files/subdirectory.h"
#include "metadata/exceptions.h"

#include <iostream>

bool fsa_install_htdocsfiles(const std::string& packageDir, const std::string& wwwRoot,
                             const std::string& applicationSubdirectory, const nimbo::FSAMetaDataReader& reader,
                             const std::string& userName, bool makeWritable) {
    const InstallPlan plan =
        planCopies(packageDir, destinationRootOf(wwwRoot, applicationSubdirectory), reader.get_web_content_info());
    try {
        copyPlanned(plan, userName);
        if (makeWritable)
            openToWebServer(plan, userName);
        return true;
    } catch (const nimbo::FSAFileException& failure) {
        std::cerr << failure.what() << '\n';
        removePlanned(plan);                 // also what stood there before under the same names
        std::cerr << failure.what() << '\n'; // the panel expects the message a second time
        return false;
    }
}
