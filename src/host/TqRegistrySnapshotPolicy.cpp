#include "TqRegistrySnapshotSeam.h"

bool TqRegistrySnapshotsAllowed() noexcept {
    return true;
}
