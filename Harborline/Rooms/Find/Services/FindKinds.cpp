#include "Rooms/Find/Services/FindKinds.h"

#include "StorageEngine/DiskTree/ContentKind.h"

namespace tidyro {

bool FindExtensions::isPackage(std::string_view name) { return isPackageFolder(name); }

} // namespace tidyro
