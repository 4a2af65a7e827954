#include "StorageEngine/Sorting/PlacePatterns.h"

#include <utility>

#include "Base/PathText.h"

namespace tidyro {

PlacePatterns::PlacePatterns(const DiskTree& tree, std::string_view base)
    : tree_(tree), base_(tree.index(base)) {
    const std::string& root = tree.rootURL().path();
    if (!base_ && path::isInsideOrEqual(root, base)) {
        inside_ = path::components(path::below(root, base));
    }
}

void PlacePatterns::forEachItem(std::string_view pattern, KnownPlace::Unit unit,
                                const std::function<void(NodeNumber)>& found) const {
    const std::vector<std::string_view> components = path::components(pattern);
    if (base_) return descend(*base_, components, unit, found);
    if (!inside_) return;
    // A root inside the base has part of the way behind it.
    std::size_t behind = 0;
    while (behind < inside_->size() && behind < components.size()) {
        if (!isPatternMatch(components[behind], (*inside_)[behind])) return;
        ++behind;
    }
    if (behind == inside_->size()) {
        descend(DiskTree::root, std::span(components).subspan(behind), unit, found);
    } else if (unit == KnownPlace::Unit::eachChild && behind + 1 == inside_->size()) {
        found(DiskTree::root);
    }
}

void PlacePatterns::descend(NodeNumber from, std::span<const std::string_view> pattern,
                            KnownPlace::Unit unit,
                            const std::function<void(NodeNumber)>& found) const {
    std::vector<NodeNumber> here{from};
    for (const std::string_view component : pattern) {
        std::vector<NodeNumber> next;
        for (const NodeNumber folder : here) {
            for (const NodeNumber child : tree_.children(folder)) {
                if (tree_.isDirectory(child) && isPatternMatch(component, tree_.nameBytes(child))) {
                    next.push_back(child);
                }
            }
        }
        here = std::move(next);
    }
    for (const NodeNumber place : here) {
        if (unit == KnownPlace::Unit::wholePlace) {
            found(place);
        } else {
            for (const NodeNumber child : tree_.children(place)) found(child);
        }
    }
}

} // namespace tidyro
