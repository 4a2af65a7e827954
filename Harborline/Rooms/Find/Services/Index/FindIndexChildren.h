#pragma once

#include "Rooms/Find/Services/Index/FindIndexStorage.h"

namespace tidyro {

/// Calls `visit` with each child of a folder until it returns false: the block, then those that
/// came later, deleted ones among them.
template <class Visit>
void visitChildren(const FindIndexStorage& storage, FindIndexStorage::Entry folder,
                   const Visit& visit) {
    FindIndexStorage::Entry child = storage.firstChild[folder];
    while (child != FindIndexStorage::none) {
        if (!visit(child)) return;
        const bool isLast = (storage.kind[child] & findkind::lastOfBlock) != 0;
        child = isLast ? FindIndexStorage::none : child + 1;
    }
    // Few folders have any, and most indexes none at all.
    if (storage.extraChildren.empty()) return;
    const auto extra = storage.extraChildren.find(folder);
    if (extra == storage.extraChildren.end()) return;
    for (const FindIndexStorage::Entry later : extra->second) {
        if (!visit(later)) return;
    }
}

} // namespace tidyro
