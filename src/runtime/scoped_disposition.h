#pragma once

#include <csignal>

/// One signal's disposition (SIG_IGN, SIG_DFL or a handler, sigaction(2)), put back at the end of the scope.  Objects
/// end in the reverse order of their beginning.  Process-wide effect; for single-threaded processes.
class ScopedDisposition {
public:
    ScopedDisposition(int signal, void (*handler)(int));
    ScopedDisposition(const ScopedDisposition&) = delete;
    ScopedDisposition& operator=(const ScopedDisposition&) = delete;
    ~ScopedDisposition();

    /// Puts back what all living objects changed, for a forked child that is about to execute another program: that
    /// program gets the dispositions that this one was started with.
    static void putBackAll();

private:
    void putBack() const { sigaction(signal_, &before_, nullptr); }

    int signal_;
    struct sigaction before_ {};
    const ScopedDisposition* outer_; ///< the one that was the youngest before
};

/// From now on a write to a reader that has gone away, or beyond the file size limit, fails instead of ending the
/// process by SIGPIPE or SIGXFSZ: a command that ended there would leave its work half done.  Stays until the process
/// ends, also for the messages of the very end.
void letWritesFail();
