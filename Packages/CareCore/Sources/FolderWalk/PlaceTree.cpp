#include "FolderWalk/PlaceTree.h"

#include "Base/PathText.h"

namespace tidyro {

void PlaceTree::add(const std::set<std::string>& relativePaths, Mark mark) {
    for (const std::string& path : relativePaths) {
        Branch* branch = &top_;
        for (const std::string_view component : path::components(path)) {
            auto& next = branch->below[std::string(component)];
            if (!next) next = std::make_unique<Branch>();
            branch = next.get();
        }
        branch->mark = mark;
    }
}

void PlaceTree::addBelow(std::string_view root, const std::set<std::string>& paths, Mark mark) {
    const std::string top = path::standardized(root);
    std::set<std::string> relative;
    for (const std::string& each : paths) {
        const std::string path = path::standardized(each);
        if (path != top && path::isInsideOrEqual(path, top)) {
            relative.emplace(path::below(path, top));
        }
    }
    add(relative, mark);
}

const PlaceTree::Branch* PlaceTree::Branch::child(std::string_view name) const {
    const auto found = below.find(name);
    return found == below.end() ? nullptr : found->second.get();
}

} // namespace tidyro
