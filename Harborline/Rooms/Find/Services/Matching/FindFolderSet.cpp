#include "Rooms/Find/Services/Matching/FindFolderSet.h"

#include <algorithm>

#include "Base/PathText.h"
#include "Base/UnicodeText.h"

namespace tidyro {

namespace {

std::vector<std::string> foldedComponents(std::string_view path) {
    std::vector<std::string> folded;
    for (const std::string_view component : path::components(path)) {
        if (component != ".") folded.push_back(searchFolded(component));
    }
    return folded;
}

} // namespace

FindFolderSet::FindFolderSet(const FindIndexStorage& storage, std::string_view path)
    : storage_(storage),
      isAbsolute_(path.starts_with('/')),
      wanted_(foldedComponents(path)),
      root_(foldedComponents(storage.rootPath)),
      folders_(storage.count()) {
    for (std::uint32_t entry = 0; entry < storage.count(); ++entry) {
        if (storage.is(entry, findflag::folder) && isMeant(entry)) folders_.add(entry);
    }
}

bool FindFolderSet::isMeant(std::uint32_t folder) const {
    if (wanted_.empty() && !isAbsolute_) return folder == 0;
    std::size_t left = wanted_.size();
    for (; left > 0 && folder != 0; folder = storage_.parent[folder]) {
        if (storage_.foldedName(folder) != wanted_[--left]) return false;
    }
    // What is left stands in the path of the root.
    if (isAbsolute_ ? folder != 0 || left != root_.size() : left > root_.size()) return false;
    const auto end = root_.end() - static_cast<std::ptrdiff_t>(left);
    return std::equal(end, root_.end(), wanted_.begin());
}

void FindFolderSet::addContents() {
    const bool isAboveRoot = isAbsolute_ && wanted_.size() < root_.size() &&
                             std::equal(wanted_.begin(), wanted_.end(), root_.begin());
    if (isAboveRoot) folders_.add(0);
    for (std::uint32_t entry = 1; entry < storage_.count(); ++entry) {
        if (folders_.has(storage_.parent[entry])) folders_.add(entry);
    }
}

} // namespace tidyro
