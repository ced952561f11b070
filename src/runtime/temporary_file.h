#pragma once

#include <ext/stdio_filebuf.h>
#include <ostream>
#include <string>

namespace nimbo {

/// A new file and the buffer that writes to it.
class TmpFileBase {
protected:
    /// \throw SystemError (a missing directory: ExSystemError<ENOENT>) when the file cannot be created.
    explicit TmpFileBase(const std::string& prefix);

    std::string path_;
    __gnu_cxx::stdio_filebuf<char> buffer_; ///< owns the descriptor
};

/// An output stream on a new, uniquely named file (mkstemp(3): mode 0600, owned by the calling user), to be written
/// completely and then renamed to its final name.  The stream's state tells of write errors.
class TmpFile : private TmpFileBase, public std::ostream {
public:
    /// \param prefix directory and start of the name; six characters are added.
    /// \param clean the destructor removes the file if it still has its temporary name.
    /// \throw SystemError (a missing directory: ExSystemError<ENOENT>) when the file cannot be created.
    TmpFile(const std::string& prefix, bool clean);
    TmpFile(const TmpFile&) = delete;
    TmpFile& operator=(const TmpFile&) = delete;
    /// Removes the file first, then flushes and closes.  A failing removal is a line on standard error.
    ~TmpFile() override;

    const std::string& path() const { return path_; }

    /// Flushes and closes, and sets the stream's failbit when the system did not take everything; errno then tells why.
    /// \return true when every byte since construction was taken.
    bool close();

private:
    bool autoclean;
};

} // namespace nimbo
