// The supported-middleware document as one readable line per row, for support staff.
// Free of <windows.h>.
#pragma once

#include <string>

// "GemaltoMiddleware  detected  Classic Client 7.3 Patch 1 64 bits  7.3.1.23  64-bit" and so
// on, one line per record of the document, under a heading line.
std::string TqFormatMiddlewareTable(const std::string& document);
