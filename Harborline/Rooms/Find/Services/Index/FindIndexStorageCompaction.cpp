// Leaving behind what was deleted.
#include "Rooms/Find/Services/Index/FindIndexChildren.h"

namespace tidyro {

/// Folder by folder from the top: what is deleted is never come to, nor is what lies in it. The
/// children of a folder, its block and those that came later, become one block.
FindIndexStorage FindIndexStorage::compacted() const {
    FindIndexStorage made(rootPath, marksSystemFolders);
    made.deniedCount = deniedCount;
    std::vector<Entry> kept; // by the new number
    const auto keep = [&](Entry entry, Entry folder) {
        kept.push_back(entry);
        const Entry number = made.count();
        visitStoredColumns([&](auto column) {
            if (column.length != FindColumnLength::entries) return;
            (made.*column.values).push((this->*column.values)[entry]);
        });
        made.names.append(name(entry));
        made.nameStart.push(static_cast<std::uint32_t>(made.names.size()));
        made.parent[number] = folder;
        made.firstChild[number] = none;
        made.kind[number] &= static_cast<std::uint8_t>(~findkind::lastOfBlock);
        if (size32[entry] == bigSize) made.bigSizes[number] = size(entry);
    };
    if (count() != 0 && !is(0, findflag::deleted)) keep(0, none);
    for (Entry folder = 0; folder < made.count(); ++folder) {
        const Entry first = made.count();
        visitChildren(*this, kept[folder], [&](Entry child) {
            if (!is(child, findflag::deleted)) keep(child, folder);
            return true;
        });
        if (made.count() == first) continue;
        made.firstChild[folder] = first;
        made.kind[made.count() - 1] |= findkind::lastOfBlock;
    }
    made.extendFolded();
    return made;
}

} // namespace tidyro
