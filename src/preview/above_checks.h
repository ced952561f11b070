#pragma once

#include "preview/findings.h"
#include "preview/site.h"

/// True when the nearest entry above a missing destination is no directory, links followed, so that nothing can be made
/// there.
bool isBlockedAbove(const Site& site);

/// What the site has above the application's directory that fails the extraction or leads it elsewhere, and a document
/// root that is missing.
Findings checkAbove(const Site& site);

/// The text of a finding that a link leads files elsewhere.
std::string whereTo(const std::string& link);
