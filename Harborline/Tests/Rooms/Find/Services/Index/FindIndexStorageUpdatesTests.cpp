// Random updates of an index against a plain tree that does the same in the simplest way.
#include <algorithm>
#include <map>
#include <memory>
#include <random>

#include <gtest/gtest.h>

#include "Base/Saturating.h"
#include "Rooms/Find/Services/Index/FindTrees.h"
#include "Rooms/Find/Services/Saving/FindIndexPersistence.h"

namespace tidyro {
namespace {

using testing::listing;
using Entry = FindIndexStorage::Entry;

struct Node {
    Node* above = nullptr;
    FindObjectType type = FindObjectType::directory;
    std::uint64_t bytes = 0;
    std::uint32_t mtime = 0;
    bool isHidden = false;
    std::map<std::string, std::unique_ptr<Node>> below = {};

    [[nodiscard]] std::uint64_t size() const {
        std::uint64_t sum = type == FindObjectType::directory ? 0 : bytes;
        for (const auto& [name, node] : below) sum = saturatingAdd(sum, node->size());
        return sum;
    }
    void collect(const std::string& path, std::map<std::string, const Node*>& into) const {
        into[path] = this;
        for (const auto& [name, node] : below) node->collect(path + "/" + name, into);
    }
};

bool isHiddenThere(const Node& node) {
    return node.isHidden || (node.above != nullptr && isHiddenThere(*node.above));
}

void expectSame(const FindIndexStorage& storage, const Node& root) {
    std::map<std::string, const Node*> expected;
    root.collect("/r", expected);
    std::size_t found = 0;
    for (Entry entry = 0; entry < storage.count(); ++entry) {
        if (storage.isDeletedOrInside(entry)) continue;
        ++found;
        const std::string path = storage.path(entry);
        ASSERT_TRUE(expected.contains(path)) << path;
        const Node& node = *expected[path];
        EXPECT_EQ(storage.lookup(path), entry) << path;
        EXPECT_EQ(storage.size(entry), node.size()) << path;
        EXPECT_EQ(storage.is(entry, findflag::hidden), isHiddenThere(node)) << path;
        EXPECT_EQ(storage.is(entry, findflag::symlink), node.type == FindObjectType::symlink);
        EXPECT_EQ(storage.is(entry, findflag::folder), node.type == FindObjectType::directory);
        EXPECT_EQ(storage.mtime[entry], node.mtime) << path;
    }
    EXPECT_EQ(found, expected.size());
    const auto valid = FindIndexPersistence::validate(storage);
    EXPECT_TRUE(valid) << valid.error().description();
}

class Updates {
  public:
    explicit Updates(unsigned seed) : random_(seed) { storage_.appendRoot("/r", 0); }

    void run() {
        for (int step = 0; step < 120; ++step) {
            switch (below(8)) {
            case 0: remove(); break;
            case 1: resize(); break;
            case 2: append(); break;
            case 3: check(storage_.compacted()); break;
            default: replace(); break;
            }
            expectSame(storage_, root_);
            if (::testing::Test::HasFailure()) return;
        }
    }

  private:
    std::uint32_t below(std::uint32_t end) { return static_cast<std::uint32_t>(random_() % end); }

    std::uint64_t randomSize() {
        constexpr std::array<std::uint64_t, 6> sizes{
            0, 7, 0xFFFF'FFFE, 0xFFFF'FFFF, 0x1'0000'0000, 0x9000'0000'0000'0000};
        return sizes[below(sizes.size())];
    }
    std::string randomName() {
        constexpr std::array<const char*, 9> names{"a",     "B", ".c", "\u00E9", "e\u0301",
                                                   "x.app", "y", "z",  "Library"};
        return names[below(names.size())];
    }
    enum class Picked : std::uint8_t { anything, folder };
    /// A path that exists; its node.
    std::pair<std::string, Node*> pick(Picked picked) {
        std::map<std::string, const Node*> all;
        root_.collect("/r", all);
        std::erase_if(all, [&](const auto& one) {
            return picked == Picked::folder && one.second->type != FindObjectType::directory;
        });
        const auto at = std::next(all.begin(), below(static_cast<std::uint32_t>(all.size())));
        return {at->first, const_cast<Node*>(at->second)};
    }

    struct Drawn {
        std::map<std::string, Node> nodes;
        FindDirectoryListing listed;
    };
    enum class Names : std::uint8_t { any, newOnly };
    Drawn draw(const Node& folder, Names names) {
        Drawn drawn;
        const std::uint32_t count = below(6);
        for (std::uint32_t i = 0; i < count; ++i) {
            const std::string name = randomName();
            if (names == Names::newOnly && folder.below.contains(name)) continue;
            constexpr std::array types{FindObjectType::file, FindObjectType::directory,
                                       FindObjectType::symlink, FindObjectType::directory};
            Node node{.type = types[below(types.size())], .bytes = randomSize(), .mtime = below(9)};
            const bool isFlagged = below(4) == 0;
            node.isHidden = isFlagged || name.starts_with('.');
            if (!drawn.nodes.emplace(name, std::move(node)).second) continue;
            const Node& made = drawn.nodes.at(name);
            drawn.listed.append({.name = name,
                                 .type = made.type,
                                 .size = made.bytes,
                                 .mtime = made.mtime,
                                 .bsdFlags = isFlagged ? 0x8000U : 0U});
        }
        return drawn;
    }
    void put(Node& folder, std::string name, Node node) {
        node.above = &folder;
        folder.below[std::move(name)] = std::make_unique<Node>(std::move(node));
    }

    void replace() {
        const auto [path, folder] = pick(Picked::folder);
        Drawn drawn = draw(*folder, Names::any);
        std::size_t newFolders = 0;
        std::erase_if(folder->below, [&](const auto& held) {
            const auto stays = drawn.nodes.find(held.first);
            return stays == drawn.nodes.end() ||
                   (stays->second.type == FindObjectType::directory) !=
                       (held.second->type == FindObjectType::directory);
        });
        for (auto& [name, node] : drawn.nodes) {
            if (const auto held = folder->below.find(name); held != folder->below.end()) {
                held->second->type = node.type;
                held->second->bytes = node.bytes;
                held->second->mtime = node.mtime;
                held->second->isHidden = node.isHidden;
            } else {
                newFolders += node.type == FindObjectType::directory ? 1 : 0;
                put(*folder, name, std::move(node));
            }
        }
        const auto made = storage_.replaceChildren(*storage_.lookup(path), drawn.listed);
        EXPECT_EQ(made.size(), newFolders);
    }
    void append() {
        const auto [path, folder] = pick(Picked::folder);
        Drawn drawn = draw(*folder, Names::newOnly);
        const Entry first = storage_.appendLooseChildren(*storage_.lookup(path), drawn.listed);
        EXPECT_EQ(first == FindIndexStorage::none, drawn.nodes.empty());
        for (auto& [name, node] : drawn.nodes) put(*folder, name, std::move(node));
    }
    void remove() {
        const auto [path, node] = pick(Picked::anything);
        if (node->above == nullptr) return;
        const Entry entry = *storage_.lookup(path);
        storage_.markDeleted(entry);
        storage_.markDeleted(entry);
        // What still changes inside something deleted is of no consequence above it.
        storage_.addToAncestors(entry, 1'000);
        const Node* gone = node;
        std::erase_if(node->above->below,
                      [&](const auto& one) { return one.second.get() == gone; });
    }
    void resize() {
        const auto [path, node] = pick(Picked::anything);
        if (node->type == FindObjectType::directory) return;
        const Entry entry = *storage_.lookup(path);
        const std::uint64_t now = node->bytes / 2;
        const auto delta = static_cast<std::int64_t>(now - node->bytes);
        storage_.setSize(now, entry);
        storage_.addToAncestors(entry, delta);
        node->bytes = now;
    }
    void check(FindIndexStorage made) {
        EXPECT_TRUE(made.extraChildren.empty());
        EXPECT_EQ(made.deletedCount, 0);
        EXPECT_EQ(std::ranges::count_if(made.flags, [](unsigned flags) { return flags & 32; }), 0);
        storage_ = std::move(made);
        std::uint64_t before = storage_.size(0);
        storage_.aggregateFolderSizes();
        EXPECT_EQ(storage_.size(0), before);
    }

    std::mt19937 random_;
    FindIndexStorage storage_{"/r"};
    Node root_;
};

TEST(FindIndexStorageUpdates, DoWhatAPlainTreeDoes) {
    for (unsigned seed = 1; seed <= 60; ++seed) {
        SCOPED_TRACE(seed);
        Updates(seed).run();
        if (HasFailure()) return;
    }
}

TEST(FindIndexStorageUpdates, TakeAFreshListing) {
    FindIndexStorage storage("/r");
    storage.appendRoot("/r", 0);
    const auto listed = [](const char* name, FindObjectType type) {
        return testing::Listed{.name = name, .type = type, .size = 5};
    };
    using enum FindObjectType;
    const testing::Listed mounted{.name = "mounted", .type = directory, .isMountPoint = true};
    const auto made =
        storage.replaceChildren(0, listing({listed("a", directory), listed("b", file), mounted,
                                            listed("b", file), listed("c", directory)}));
    EXPECT_EQ(made, (std::vector<Entry>{1, 4})) << "a name that was told twice is there once";
    EXPECT_EQ(storage.size(0), 5U);
    storage.appendBlock(1, listing({listed("inside", file)}));
    EXPECT_TRUE(storage.replaceChildren(0, listing({listed("a", directory), listed("b", symlink)}))
                    .empty());
    EXPECT_TRUE(storage.lookup("/r/a/inside"));
    EXPECT_EQ(storage.deletedCount, 2);
    const auto again = storage.replaceChildren(0, listing({listed("b", directory)}));
    ASSERT_EQ(again.size(), 1U);
    EXPECT_EQ(storage.lookup("/r/b"), again.front());
    EXPECT_EQ(storage.compacted().count(), 2U);
}

} // namespace
} // namespace tidyro
