#pragma once

/// Runs larkspur-preview: prints what its command line asks for on standard output, then the findings on standard
/// error.
/// \return 0 without findings, 1 with warnings alone, 2 with errors.
/// \throw std::exception or nimbo::FSAXMLException when the command line or the package cannot be used or standard
///        output cannot be written whole.  Nothing has been printed on standard error then.
int previewCommand(int argc, char** argv);
