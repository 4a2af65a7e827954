#include "Platform/Mounts/MountPoints.h"

namespace tidyro::platform {

// Listing a folder tells them.
std::set<std::string> mountPointsBelow(const FolderDescriptor& /*folder*/) { return {}; }

// A folder cannot be mounted here.
MountsBelow mountsBelow(const FolderDescriptor& /*folder*/, std::uint64_t /*volume*/) { return {}; }

} // namespace tidyro::platform
