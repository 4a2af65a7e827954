// The names as a search sees them, and what they tell of the places.
#include <cstddef>

#include "Base/Fault.h"
#include "Base/UnicodeText.h"
#include "Rooms/Find/Services/Index/FindIndexStorage.h"
#include "Rooms/Find/Services/Index/FindPlaces.h"

namespace tidyro {

/// Most names are plain ASCII, and a run of them is one piece of `names`: it is lowered as a whole,
/// in a form that compilers turn into vector instructions.
void FindIndexStorage::foldPlainNames(Entry from, Entry to) {
    const std::size_t bytes = nameStart[to] - nameStart[from];
    const std::uint32_t moved = foldedStart[from] - nameStart[from]; // may wrap, and wraps back
    const char* source = names.data() + nameStart[from];
    char* lowered = foldedNames.appendUnset(bytes);
    for (std::size_t i = 0; i < bytes; ++i) {
        const auto byte = static_cast<unsigned char>(source[i]);
        const unsigned isUpper = static_cast<unsigned char>(byte - 'A') < 26 ? 0x20 : 0;
        lowered[i] = static_cast<char>(byte | isUpper);
    }
    const std::size_t more = to - from;
    const std::uint32_t* ends = nameStart.data() + from + 1;
    std::uint32_t* entries = foldedEntries.appendUnset(more);
    std::uint32_t* starts = foldedStart.appendUnset(more);
    for (std::size_t i = 0; i < more; ++i) entries[i] = from + static_cast<Entry>(i);
    for (std::size_t i = 0; i < more; ++i) starts[i] = ends[i] + moved;
}

void FindIndexStorage::extendFolded() {
    const Entry all = count();
    foldedEntries.reserveMore(all - foldedThrough);
    foldedStart.reserveMore(all - foldedThrough);
    foldedNames.reserveMore(nameStart[all] - nameStart[foldedThrough]);
    while (foldedThrough < all) {
        Entry plainEnd = foldedThrough;
        while (plainEnd < all && !is(plainEnd, findflag::notASCII)) ++plainEnd;
        if (plainEnd > foldedThrough) foldPlainNames(foldedThrough, plainEnd);
        foldedThrough = plainEnd;
        if (foldedThrough == all) break;
        foldedNames.append(searchFolded(name(foldedThrough)));
        foldedEntries.push(foldedThrough);
        foldedStart.push(static_cast<std::uint32_t>(foldedNames.size()));
        ++foldedThrough;
    }
    require(foldedNames.size() <= 0xFFFFFFFF, "folded names outgrew their offsets");
}

void FindIndexStorage::extendPlaces() {
    const auto first = static_cast<Entry>(place.size());
    const Entry all = count();
    std::uint8_t* rated = place.appendUnset(all - first) - first;
    for (Entry entry = first; entry < all; ++entry) {
        if (entry == 0) {
            rated[0] =
                static_cast<std::uint8_t>(static_cast<unsigned>(findPlaceOfRoot(rootPath)) << 4U);
            continue;
        }
        const auto above = static_cast<FindPlace>(rated[parent[entry]] >> 4U);
        unsigned cost = findPlaceCost(above);
        auto inside = FindPlace::top;
        if (is(entry, findflag::folder)) {
            inside = findPlaceInside(above, foldedName(entry), is(entry, findflag::package));
        } else if (is(entry, findflag::program)) {
            cost -= findProgramGain;
        }
        rated[entry] = static_cast<std::uint8_t>(static_cast<unsigned>(inside) << 4U | cost);
    }
}

} // namespace tidyro
