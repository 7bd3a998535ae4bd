// The major file version of a module, read from its version resource.
#pragma once

// Hands out the major version as text ("10" for 10.0.19041.1). Returns 0, 1 for a null
// argument, the mapped code of a Windows error, 3 for an empty version block, or 23.
int ZelDLLCommonCPPGetFileVersion(const char* path, char** versionOut, int* versionLengthOut,
                                  const char* logFile) noexcept;
