#pragma once

/// Opens "/dev/null" for each of the descriptors 0 to 2 that the process was started without.  Otherwise the next file
/// would get such a number, and messages would be written into it, also by the programs that this one starts.
/// Ends the process with status 1 when "/dev/null" cannot be opened; there is nowhere to say so.
void openMissingStandardStreams();
