#include "Rooms/Find/Services/Matching/FindSubject.h"

#include <ranges>

namespace tidyro {

FindSubject FindSubjects::path(std::uint32_t entry) {
    const std::uint32_t folder = storage_.parent[entry];
    if (folder != folder_) writeFolder(folder);
    own_.resize(ownFolder_);
    folded_.resize(foldedFolder_);
    append(entry);
    return {.own = own_,
            .folded = folded_,
            .isASCII = isFolderASCII_ && !storage_.is(entry, findflag::notASCII)};
}

void FindSubjects::writeFolder(std::uint32_t folder) {
    above_.clear();
    for (std::uint32_t at = folder; at != 0 && at != FindIndexStorage::none;
         at = storage_.parent[at]) {
        above_.push_back(at);
    }
    own_.clear();
    folded_.clear();
    isFolderASCII_ = true;
    for (const std::uint32_t entry : std::views::reverse(above_)) {
        append(entry);
        if (storage_.is(entry, findflag::notASCII)) isFolderASCII_ = false;
    }
    folder_ = folder;
    ownFolder_ = own_.size();
    foldedFolder_ = folded_.size();
}

void FindSubjects::append(std::uint32_t entry) {
    own_ += '/';
    own_ += storage_.name(entry);
    folded_ += '/';
    folded_ += storage_.foldedName(entry);
}

} // namespace tidyro
