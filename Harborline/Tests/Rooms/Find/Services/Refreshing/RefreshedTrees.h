#pragma once

#include <chrono>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <thread>

#include <fmt/format.h>
#include <gtest/gtest.h>

#include "Rooms/Find/Services/Building/FindIndexBuilder.h"
#include "Rooms/Find/Services/Index/FindIndexStorage.h"
#include "Rooms/Find/Services/Refreshing/FindIndexRefresh.h"

namespace tidyro::testing {

/// A date of change is settled after this long: longer than the clock of a file system lags here.
constexpr std::chrono::milliseconds settling{30};

inline FindIndexRefresh quickRefresh(std::set<std::string> skipping = {}) {
    return FindIndexRefresh({.skipping = std::move(skipping),
                             .settledAfter = std::chrono::nanoseconds(settling).count()});
}
inline void waitUntilSettled() { std::this_thread::sleep_for(settling * 6 / 5); }

inline FindIndexStorage builtIndex(const std::string& root, std::set<std::string> skipping = {}) {
    auto storage = FindIndexBuilder({.rootPath = root, .skipping = std::move(skipping)}).run();
    EXPECT_TRUE(storage.has_value());
    return storage ? *std::move(storage) : FindIndexStorage("");
}

/// Looks and makes the changes. What was looked at.
inline FindIndexChanges refreshed(FindIndexStorage& index,
                                  const FindIndexRefresh& refresh = quickRefresh()) {
    auto changes = refresh.look(index);
    EXPECT_TRUE(changes) << FindIndexRefresh::description(changes.error());
    if (!changes) return {};
    const FindIndexChanges counts{.folders = {},
                                  .deniedCount = changes->deniedCount,
                                  .lookedAt = changes->lookedAt,
                                  .read = changes->read,
                                  .taken = changes->taken};
    EXPECT_TRUE(FindIndexRefresh::apply(*std::move(changes), index));
    return counts;
}

/// All that an index says, by path. Where its entries stand in it is no part of that.
inline std::map<std::string, std::string> contentsOf(const FindIndexStorage& index) {
    std::map<std::string, std::string> contents;
    for (FindIndexStorage::Entry entry = 0; entry < index.count(); ++entry) {
        if (index.isDeletedOrInside(entry)) continue;
        const bool isNew =
            contents
                .emplace(index.path(entry),
                         fmt::format("flags {} kind {} depth {} size {} date {}",
                                     index.flags[entry], index.kind[entry] & ~findkind::lastOfBlock,
                                     index.depth[entry], index.size(entry), index.mtime[entry]))
                .second;
        EXPECT_TRUE(isNew) << index.path(entry);
    }
    return contents;
}

} // namespace tidyro::testing
