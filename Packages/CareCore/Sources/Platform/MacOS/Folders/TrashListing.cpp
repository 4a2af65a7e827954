// The Finder alone knows where a volume's Trash is and where an item in it lay. No call of the
// system hands that on.
#include "Platform/Folders/TrashListing.h"

#include <cerrno>

#include "Base/PathText.h"
#include "Platform/Folders/WellKnownFolders.h"

namespace tidyro::platform {

TrashListing TrashListing::read(const Options&) {
    TrashListing listing;
    listing.unread.push_back({trashPlaces().home.path(), {ENOTSUP}});
    return listing;
}

FileURL TrashListing::url(const Item& item) const {
    const std::string path = path::joined(places[item.place].path, item.name);
    return item.seen.kind == ItemKind::folder ? FileURL::folder(path) : FileURL::file(path);
}

void TrashListing::readNote(Item&) const {}

} // namespace tidyro::platform
