#include "FolderWalk/FolderRoute.h"

#include <utility>

namespace tidyro {

using platform::FolderDescriptor;

namespace {

bool liesElsewhere(const platform::FolderFacts& facts, const WalkedMounts& mounts) {
    using enum platform::EntryTrait;
    if (facts.volume == mounts.root) return facts.traits.has(mountPoint);
    return facts.traits.has(snapshot) || !mounts.ontoThemselves.contains(facts.volume);
}

} // namespace

FolderRoute::Arrival FolderRoute::follow(const FolderDescriptor& from,
                                         const WalkedMounts& mounts) const {
    Arrival arrival;
    const FolderDescriptor* parent = &from;
    for (std::size_t i = length_; i > 0; --i) {
        const char* name = names_[i - 1].c_str();
        auto next = parent->open(name);
        if (!next) {
            const auto facts = parent->facts(name);
            if (i == 1 && facts) {
                // What is mounted there may be closed to us; then it is still a mount point.
                arrival.isElsewhere = liesElsewhere(*facts, mounts);
                arrival.facts = *facts;
            }
            arrival.error = next.error();
            arrival.folder = {};
            return arrival;
        }
        // The folder above closes only now that the one below it is open.
        arrival.folder = std::move(*next);
        parent = &arrival.folder;
    }
    if (const auto facts = parent->facts()) {
        arrival.facts = *facts;
        arrival.isElsewhere = length_ > 0 && liesElsewhere(*facts, mounts);
    } else {
        arrival.error = facts.error();
    }
    return arrival;
}

} // namespace tidyro
