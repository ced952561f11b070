#pragma once

#include "xml/handles.h"

/// Opens a document's file for libxml2.  The library takes the same names as ever ("-", file: URLs, other URLs that it
/// knows), but a local file has to be fit to be read as root: a name that is a link has to lead to a file of
/// openPublicTarget, and a FIFO is not waited for.  What is compressed is not unpacked.
/// \return null after the library's message when the file cannot be opened.
XmlParser parserOfFile(const std::string& fileName);
