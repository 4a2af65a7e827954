// The queries of DiskTree that pass over a whole subtree: rankings and sums.
#include <algorithm>
#include <utility>

#include "Base/Saturating.h"
#include "Base/UnicodeText.h"
#include "StorageEngine/DiskTree/DiskTree.h"

namespace tidyro {

namespace {

/// The largest nodes met so far, at most `limit`: a heap whose smallest entry is on top.
class LargestNodes {
  public:
    explicit LargestNodes(std::size_t limit) : limit_(limit) {}

    [[nodiscard]] bool wants(std::uint64_t size) const {
        return heap_.size() < limit_ || size > heap_.front().size;
    }
    void offer(std::uint64_t size, NodeNumber node) {
        if (heap_.size() == limit_) {
            std::ranges::pop_heap(heap_, larger);
            heap_.back() = {size, node};
        } else {
            heap_.push_back({size, node});
        }
        std::ranges::push_heap(heap_, larger);
    }
    [[nodiscard]] std::vector<NodeNumber> sorted() && {
        std::ranges::sort(heap_, larger);
        std::vector<NodeNumber> nodes;
        nodes.reserve(heap_.size());
        for (const Entry& entry : heap_) nodes.push_back(entry.node);
        return nodes;
    }

  private:
    struct Entry {
        std::uint64_t size;
        NodeNumber node;
    };
    /// Among equal sizes the node that comes first counts as larger, so the order is settled and a
    /// folder stands before what it holds.
    static bool larger(const Entry& a, const Entry& b) {
        return a.size != b.size ? a.size > b.size : a.node < b.node;
    }

    std::size_t limit_;
    std::vector<Entry> heap_;
};

constexpr std::uint64_t wholeBlocks(std::uint64_t bytes) {
    constexpr std::uint64_t block = 4'096;
    return saturatingAdd(bytes, block - 1) / block * block;
}

} // namespace

/// Visits the nodes below `node` that were moved away neither by themselves nor with a folder above
/// them. Does not visit the node itself.
template <class Body>
void DiskTree::forEachPresent(NodeNumber node, Body body) const {
    if (isGone(node)) return;
    std::vector<NodeNumber> folders{node};
    while (!folders.empty()) {
        const NodeNumber folder = folders.back();
        folders.pop_back();
        for (const NodeNumber child : children(folder)) {
            const auto i = static_cast<std::size_t>(child);
            if (columns_.flags[i].contains(Flags::movedAway)) continue;
            body(child, i);
            if (columns_.childCount[i] > 0) folders.push_back(child);
        }
    }
}

template <class AcceptNode>
std::vector<NodeNumber> DiskTree::largest(const Ranking& ranking, AcceptNode accept) const {
    if (ranking.limit < 1) return {};
    const auto& bytes = sizes({.onDisk = ranking.onDisk});
    LargestNodes found(static_cast<std::size_t>(ranking.limit));
    forEachPresent(ranking.under, [&](NodeNumber node, std::size_t i) {
        if (found.wants(bytes[i]) && accept(node, i)) found.offer(bytes[i], node);
    });
    return std::move(found).sorted();
}

std::vector<NodeNumber> DiskTree::largestFiles(const Ranking& ranking, const Accept& where) const {
    return largest(ranking, [&](NodeNumber node, std::size_t i) {
        return !columns_.flags[i].contains(Flags::directory) && (!where || where(node));
    });
}

std::vector<NodeNumber> DiskTree::largestFolders(const Ranking& ranking) const {
    return largest(ranking, [&](NodeNumber, std::size_t i) {
        return columns_.flags[i].contains(Flags::directory);
    });
}

std::vector<NodeNumber> DiskTree::untouchedFiles(const Ranking& ranking, std::uint32_t since,
                                                 std::uint64_t minimumBytes) const {
    const auto& bytes = sizes({.onDisk = ranking.onDisk});
    return largest(ranking, [&](NodeNumber node, std::size_t i) {
        return !columns_.flags[i].contains(Flags::directory) && bytes[i] >= minimumBytes &&
               lastUsedSeconds(node) < since;
    });
}

std::vector<NodeNumber> DiskTree::matching(std::string_view name, const Ranking& ranking) const {
    const std::string wanted = lowercased(name);
    return largest(ranking, [&](NodeNumber node, std::size_t) {
        return lowercased(nameBytes(node)).find(wanted) != std::string::npos;
    });
}

std::array<std::uint64_t, contentKindCount> DiskTree::bytesByKind(NodeNumber under,
                                                                  Measure measure) const {
    const auto& column = sizes(measure);
    std::array<std::uint64_t, contentKindCount> bytes{};
    const auto add = [&](NodeNumber, std::size_t i) {
        if (columns_.flags[i].contains(Flags::directory)) return;
        std::uint64_t& total = bytes[static_cast<std::size_t>(columns_.kind[i])];
        total = saturatingAdd(total, column[i]);
    };
    if (!isGone(under)) add(under, at(under));
    forEachPresent(under, add);
    return bytes;
}

/// The sum of `amount` over the files of a subtree.
template <class Amount>
std::uint64_t DiskTree::summed(NodeNumber node, Amount amount) const {
    std::uint64_t total = 0;
    const auto add = [&](NodeNumber, std::size_t i) {
        if (!columns_.flags[i].contains(Flags::directory)) total = saturatingAdd(total, amount(i));
    };
    if (!isGone(node)) add(node, at(node));
    forEachPresent(node, add);
    return total;
}

std::uint64_t DiskTree::compressionSavings(NodeNumber node) const {
    return summed(node, [&](std::size_t i) -> std::uint64_t {
        const Flags flags = columns_.flags[i];
        // What a further clone leaves out it leaves out as a clone.
        if (!flags.contains(Flags::compressed) || flags.contains(Flags::extraClone)) return 0;
        return saturatingSubtract(columns_.logicalSize[i], columns_.allocatedSize[i]);
    });
}

std::uint64_t DiskTree::cloneSavings(NodeNumber node) const {
    return summed(node, [&](std::size_t i) -> std::uint64_t {
        if (!columns_.flags[i].contains(Flags::extraClone)) return 0;
        return saturatingSubtract(wholeBlocks(columns_.logicalSize[i]), columns_.allocatedSize[i]);
    });
}

bool DiskTree::hasSharedStorage() const {
    return std::ranges::any_of(columns_.flags,
                               [](Flags flags) { return flags.contains(Flags::sharedStorage); });
}

std::uint64_t DiskTree::sharedStorageBytes(NodeNumber node, Measure measure) const {
    const auto& bytes = sizes(measure);
    return summed(node, [&](std::size_t i) -> std::uint64_t {
        return columns_.flags[i].contains(Flags::sharedStorage) ? bytes[i] : 0;
    });
}

} // namespace tidyro
