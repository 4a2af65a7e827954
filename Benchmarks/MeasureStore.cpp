// Measures one folder as a store of a kind, for comparing it with the bare walker:
//
//     MeasureStore KIND FOLDER   ->   "files logical allocated units seconds"
//
// KIND is one of "uvCache", "pnpmStore", "huggingFaceHub" and so on.

#include <cstdio>

#include "Base/Stopwatch.h"
#include "StorageEngine/DeveloperStores/DeveloperStoreInventory.h"

using namespace tidyro;

int main(int count, char** arguments) {
    const auto kind = count < 3 ? std::nullopt : fromRawValue<DeveloperStoreKind>(arguments[1]);
    if (!kind) {
        std::fputs("MeasureStore KIND FOLDER\n", stderr);
        return 64;
    }
    const Stopwatch watch;
    const DeveloperStoreInventory inventory{.userHome = FileURL::folder("/nonexistent")};
    const auto store = inventory.measure({.kind = *kind, .url = FileURL::folder(arguments[2])});
    if (!store || !*store) {
        std::fprintf(stderr, "no store of this kind lies at %s\n", arguments[2]);
        return 1;
    }
    std::printf("%lld %llu %llu %zu %.3f\n", static_cast<long long>((*store)->fileCount),
                static_cast<unsigned long long>((*store)->logicalByteCount),
                static_cast<unsigned long long>((*store)->allocatedByteCount),
                (*store)->largestUnits.size(), watch.seconds());
    return 0;
}
