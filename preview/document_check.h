#pragma once

#include "preview/package_preview.h"

#include <libxml/tree.h>

/// What the reader of a metadata document passes over although it was probably meant for it: elements and attributes in
/// document order.
/// \throw std::runtime_error for a mapping without "url", which would end the reader's process.
std::vector<PreviewWarning> checkDocument(xmlDoc* document);
