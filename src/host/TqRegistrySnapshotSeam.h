// Test seam: whether a snapshot scope may open at all. With snapshots disallowed every search
// reads the registry afresh, which is how the tests compare the two. Allowed by default.
#pragma once

void TqAllowRegistrySnapshots(bool allowed) noexcept;
