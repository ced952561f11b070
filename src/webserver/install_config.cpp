#include "webserver/install_config.h"

#include "files/subdirectory.h"
#include "metadata/exceptions.h"
#include "metadata/metadata_reader.h"
#include "runtime/admitted_exceptions.h"
#include "runtime/options.h"
#include "runtime/temporary_file.h"
#include "webserver/fragment.h"
#include "webserver/virtual_host.h"

#include <boost/filesystem/operations.hpp>
#include <cerrno>
#include <iostream>
#include <sys/stat.h>

namespace fs = boost::filesystem;

namespace {

class ScopedUmask {
public:
    explicit ScopedUmask(mode_t mask) : before_(umask(mask)) {}
    ScopedUmask(const ScopedUmask&) = delete;
    ScopedUmask& operator=(const ScopedUmask&) = delete;
    ~ScopedUmask() { umask(before_); }

private:
    mode_t before_;
};

/// Makes the directory with mode 0755 whatever the caller's umask is: whoever may write there configures a web server
/// that starts as root.
bool createConfigDirectory(const fs::path& directory) {
    const ScopedUmask ownerWrites(022);
    // Asked for with its mode, because a default ACL above takes the umask out of force.
    if (mkdir(directory.c_str(), 0755) == 0)
        return true;
    return fs::create_directory(directory); // tells what is wrong in the library's words
}

void writeFragment(nimbo::TmpFile& file, const std::string& text) {
    errno = 0;
    file << text;
    if (!file.close()) {
        const boost::system::error_code code(errno != 0 ? errno : EIO, boost::system::system_category());
        throw fs::filesystem_error("Unable to write", file.path(), code);
    }
}

int installFragment(const std::string& metadataFile, const FragmentSettings& settings, const std::string& configPath) {
    const fs::path configDir = fs::path(configPath).parent_path();
    boost::system::error_code undetermined;
    if (!fs::exists(fs::status(configDir, undetermined)) && !createConfigDirectory(configDir)) {
        std::cerr << "Unable to create directory: " << configDir; // the fixed text has no line end
        return -1;
    }
    if (!settings.php && !settings.cgi) {
        fs::remove(configPath);
        return 0;
    }

    nimbo::TmpFile file(configPath + ".new", true);
    const nimbo::FSAMetaDataReader reader(metadataFile);
    const std::string text = fragmentText(reader.get_web_content_info(), settings);
    writeFragment(file, text);

    if (fs::exists(configPath))
        fs::remove(configPath);
    if (text.empty())
        fs::remove(file.path());
    else
        fs::rename(file.path(), configPath);
    return 0;
}

} // namespace

int installWebserverConfig(int argc, char** argv) {
    std::string vhostPath;
    std::string wwwRoot;
    std::string applicationSubdirectory;
    std::string metadataFile;
    std::string configFileName;
    int disablePhp = 0;
    int disableCgi = 0;

    // What becomes part of a directive has to stay on its line: the server obeys the next one as root.
    CommandOptions options("Webserver configuration options");
    options.required(option::vhostPath, vhostPath);
    options.requiredLine(option::wwwRoot, wwwRoot);
    options.requiredLine(option::applicationSubdirectory, applicationSubdirectory);
    options.required(option::metadataFile, metadataFile);
    options.required(option::configFileName, configFileName);
    // Only a number that is not 0 disables anything: without a value these options do nothing.
    options.number({"disable-php-support", ""}, disablePhp);
    options.number({"disable-cgi-support", ""}, disableCgi);
    options.parse(argc, argv);

    std::string configPath = nimbo::layout::fragmentPathOf(vhostPath, configFileName);
    return wtx_install_apache_conf(metadataFile, disablePhp, disableCgi, configPath, applicationSubdirectory, wwwRoot);
}

int wtx_install_apache_conf(const std::string& metadataFile, int disablePhp, int disableCgi, std::string& configPath,
                            const std::string& applicationSubdirectory, const std::string& wwwRoot) {
    return admitOnly<>([&] {
        try {
            const std::string subdirectoryPath = subdirectoryPathOf(applicationSubdirectory);
            return installFragment(metadataFile, {disablePhp == 0, disableCgi == 0, wwwRoot, subdirectoryPath},
                                   configPath);
        } catch (const fs::filesystem_error& failure) {
            std::cerr << "Filesystem exception during config creation: " << failure.what() << " error code: ("
                      << failure.code() << ")\n";
        } catch (const nimbo::FSAXMLException& failure) {
            std::cerr << "XML occured during processing the package file " << metadataFile << ": " << failure.what()
                      << '\n';
        }
        return -1;
    });
}
