// Queries: any bytes are read, in time that grows with them, and hold or do not hold for names of
// every sort. What is denied holds for exactly the others.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "Base/Fault.h"
#include "Base/Timestamp.h"
#include "Rooms/Find/Services/Matching/FindQueryMatcher.h"
#include "Rooms/Find/Services/Query/FindQuery.h"

namespace {

using namespace tidyro;
using Kind = FindQueryNode::Kind;

FindIndexStorage makeIndex() {
    FindIndexStorage storage("/home/ada");
    storage.marksSystemFolders = true;
    const auto root = storage.appendRoot("/home/ada", 0);
    FindDirectoryListing listing;
    listing.append({.name = "Src", .type = FindObjectType::directory});
    listing.append({.name = "usr", .type = FindObjectType::directory});
    for (const std::string_view name :
         {"report 2026.pdf", "myPhoto.JPG", ".hidden", "a.tar.gz", "Re\u0301sum\u00E9", "\u0301",
          "\xFF\xC3(", "\u66F8\u985E\u1112\u1161\u11AB", "\U0001F389", "a\nb"}) {
        listing.append({.name = name,
                        .type = FindObjectType::file,
                        .size = name.size() * 1'000,
                        .mtime = 1'700'000'000});
    }
    const auto first = storage.appendBlock(root, listing);
    storage.appendBlock(first, listing);
    storage.aggregateFolderSizes();
    storage.markDeleted(first + 2);
    return storage;
}

std::size_t depthOf(const FindQueryNode& node) {
    require(node.kind == Kind::all || node.kind == Kind::any || node.kind == Kind::none ||
                node.children.empty(),
            "a condition has children");
    require(node.kind != Kind::none || node.children.size() == 1, "what is denied is not one");
    require(node.kind != Kind::any || node.children.size() > 1, "alternatives are too few");
    std::size_t deepest = 0;
    for (const FindQueryNode& child : node.children) {
        require(child.kind != node.kind || node.kind == Kind::none, "a node nests without need");
        deepest = std::max(deepest, depthOf(child));
    }
    return deepest + 1;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const FindIndexStorage storage = makeIndex();
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    const FindQuery query = parsedFindQuery(text, Timestamp::since1970(1'800'000'000, 0));
    require(query.root.kind == Kind::all, "the root is something else");
    require(depthOf(query.root) < 300, "a tree is too deep");
    require(!query.problem || query.problem->ends_with('.'), "a problem is no sentence");

    FindQuery denied{.root = {.kind = Kind::none}};
    denied.root.children.push_back(query.root);
    const FindQueryMatcher matcher(storage, query);
    FindEntrySet all(storage.count());
    for (std::uint32_t entry = 1; entry < storage.count(); ++entry) {
        if (!storage.isDeletedOrInside(entry)) all.add(entry);
    }
    const FindEntrySet matches = matcher.matches(all);
    const FindEntrySet others = FindQueryMatcher(storage, denied).matches(all);
    for (std::uint32_t entry = 0; entry < storage.count(); ++entry) {
        require(all.has(entry) || !matches.has(entry), "what takes no part matches");
        require(!all.has(entry) || matches.has(entry) != others.has(entry), "a denial is none");
        require(matcher.fit(entry).rank <= FindNameRank::anywhere, "a rank from nowhere");
    }
    return 0;
}
