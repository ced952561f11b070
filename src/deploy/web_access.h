#pragma once

#include "deploy/install_plan.h"

#include <string>
#include <sys/stat.h>

/// Opens the trees of a plan's writable mappings to the web server's account, in their order, but for the trees of
/// plain mappings inside them.  The entry that was examined is the one that is changed (EntryHandle).  The web server's
/// account may change what lies in an open tree at any moment: no link is followed in the elements of a path from the
/// directory of the outermost writable mapping on.  That directory itself may be a link where its URL ends in a slash.
/// \param userName the site's account.
/// \throw nimbo::FSAFileException for an entry that cannot be examined or is neither file nor directory, and for a
///        mapping's own directory whose mode cannot be changed; other modes are changed as far as possible.
void openToWebServer(const InstallPlan& plan, const std::string& userName);

/// The group of the panel's customers.
inline constexpr const char* customersGroup = "krocln";

/// Whose directories and files they are decides how they are opened; 0 stands for one that is not known.
struct WebAccessIds {
    uid_t user;   ///< the site's account
    uid_t apache; ///< the web server's account, www-data
    gid_t kroserv;
    gid_t krocln;

    /// Looked up, each failure with its message.
    /// \param userName the site's account.
    static WebAccessIds of(const std::string& userName);

    /// The same without messages, for the account of this process.
    static WebAccessIds ofThisProcess();
};

/// The mode bits with which both the web server's account and the site's user can write a directory or file.
/// \param status of that directory or file.
mode_t bitsForWebserver(const struct stat& status, const WebAccessIds& ids);

/// Adds these bits to the entry that `path` names, without following a link in its last element.  No command calls it:
/// other tools rely on it.
/// \param status of `path`, which is a directory or a regular file.
/// \param userName the site's account.  The first call decides it for the whole process: look-ups are made once.
/// \return 0, or -1 with errno.
int makeWritableByWebserver(const boost::filesystem::path& path, const struct stat& status,
                            const std::string& userName);
