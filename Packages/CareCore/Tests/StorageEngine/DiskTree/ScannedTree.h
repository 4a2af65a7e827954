#pragma once

#include <string>
#include <utility>

#include <gtest/gtest.h>

#include "StorageEngine/DiskTree/DiskTreeScanner.h"

namespace tidyro::testing {

inline DiskTree scanned(const std::string& path,
                        const DiskTreeScanner& scanner = DiskTreeScanner()) {
    auto tree = scanner.scan(FileURL::folder(path));
    EXPECT_TRUE(tree.has_value()) << DiskTreeScanner::description(tree.error());
    return *std::move(tree);
}

inline bool has(const DiskTree& tree, const std::string& path, DiskTreeFlags::Flag flag) {
    const auto node = tree.index(path);
    EXPECT_TRUE(node.has_value()) << path;
    return node && tree.flags(*node).contains(flag);
}

} // namespace tidyro::testing
