#pragma once

/// Handler of "--remove-apache-conf": removes an application's Apache fragment.  One that does not exist is fine.
/// \return 0.
/// \throw the option library's errors; boost::filesystem::filesystem_error when the fragment cannot be removed.
int removeWebserverConfig(int argc, char** argv);
