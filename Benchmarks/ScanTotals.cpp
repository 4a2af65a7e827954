// Prints the exact totals of a scan, for comparing them with an independent count:
//
//     ScanTotals FOLDER   ->   "files folders logical allocated denied mean-name-length"

#include <cstdio>

#include "StorageEngine/DiskTree/DiskTreeScanner.h"

int main(int count, char** arguments) {
    if (count < 2) return 64;
    const auto tree = tidyro::DiskTreeScanner().scan(tidyro::FileURL::folder(arguments[1]));
    if (!tree) {
        std::fprintf(stderr, "%s\n", tidyro::DiskTreeScanner::description(tree.error()).c_str());
        return 1;
    }
    constexpr auto root = tidyro::DiskTree::root;
    std::printf("%u %u %llu %llu %lld %.1f\n", tree->fileCount(root), tree->folderCount(root),
                static_cast<unsigned long long>(tree->size(root, {.onDisk = false})),
                static_cast<unsigned long long>(tree->size(root, {.onDisk = true})),
                static_cast<long long>(tree->deniedCount()),
                static_cast<double>(tree->columns().nameBytes.size()) /
                    static_cast<double>(tree->count()));
    return 0;
}
