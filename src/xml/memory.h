#pragma once

/// From now on memory exhaustion inside libxml2 ends the process through std::terminate with a std::bad_alloc.  The
/// library does not survive every failed allocation: some leave a document with parts missing, some crash.
/// To be called before the library's first allocation; later calls do nothing.
void guardXmlMemory();
