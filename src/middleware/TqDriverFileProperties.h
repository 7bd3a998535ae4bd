// The properties of a driver package's minidriver file, read from its version resource (the
// same strings the shell shows for an executable).
#pragma once

#include "middleware/TqDriverSelection.h"

#include <string>

// Fills the record's descriptive fields and versions from the file's version resource. Returns
// 0 when the record was filled; non-zero when the file has no readable version resource or a
// version text does not begin with two dot-separated numbers (the candidate is then skipped).
int TqReadDriverFileProperties(const std::string& filePath, TqDriverRecord& record);
