#include "StorageEngine/DiskTree/PlaceTree.h"

#include "Base/PathText.h"

namespace tidyro {

PlaceTree::PlaceTree(std::string_view root, const std::set<std::string>& skipped,
                     const std::set<std::string>& contentsSkipped) {
    add(root, contentsSkipped, Mark::contentsSkipped);
    add(root, skipped, Mark::skipped); // the stronger of two marks
}

void PlaceTree::add(std::string_view root, const std::set<std::string>& places, Mark mark) {
    for (const std::string& place : places) {
        const std::string path = path::standardized(place);
        if (!path::isInsideOrEqual(path, root) || path == root) continue;
        Branch* branch = &top_;
        for (const std::string_view component : path::components(path::below(path, root))) {
            auto& next = branch->below[std::string(component)];
            if (!next) next = std::make_unique<Branch>();
            branch = next.get();
        }
        branch->mark = mark;
    }
}

const PlaceTree::Branch* PlaceTree::Branch::child(std::string_view name) const {
    const auto found = below.find(name);
    return found == below.end() ? nullptr : found->second.get();
}

} // namespace tidyro
