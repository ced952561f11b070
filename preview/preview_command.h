#pragma once

/// Runs larkspur-preview: prints what its command line asks for on standard output, then the warnings on standard
/// error. \return 0, or 1 with warnings. \throw std::exception or nimbo::FSAXMLException, before anything is printed on
/// standard error, when the command line
///        or the package cannot be used or standard output cannot be written whole.
int previewCommand(int argc, char** argv);
