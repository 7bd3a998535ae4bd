// Whether a snapshot scope may open at all, alone in TqRegistrySnapshotPolicy.cpp: the library
// always allows it; a test program links a definition of its own in its place to compare searches
// with and without snapshots. Not part of the library's interface.
#pragma once

bool TqRegistrySnapshotsAllowed() noexcept;
