// Measures stores of developers' tools, as "MakeStore" makes them or as they are:
//
//     MeasureStore KIND FOLDER      one, for comparing it with the bare walker; prints
//                                   "files logical allocated units seconds"
//     MeasureStore machine FOLDER   those of the home "home" in the folder and of the system that
//                                   the folder is; prints what people would be told of them
//
// KIND is one of "uvCache", "pnpmStore", "huggingFaceHub" and so on.

#include <cstdio>
#include <string>
#include <string_view>

#include "Base/PathText.h"
#include "Base/RoomText.h"
#include "Base/Stopwatch.h"
#include "Base/UnicodeText.h"
#include "StorageEngine/DeveloperStores/DeveloperStoreInventory.h"

using namespace tidyro;

namespace {

int measureOne(DeveloperStoreKind kind, const char* folder) {
    const Stopwatch watch;
    const DeveloperStoreInventory inventory{.userHome = FileURL::folder("/nonexistent")};
    const auto measured = inventory.measure({.kind = kind, .url = FileURL::folder(folder)});
    const auto store = measured ? *measured : std::nullopt;
    if (!store) {
        std::fprintf(stderr, "no store of this kind lies at %s\n", folder);
        return 1;
    }
    std::printf("%lld %llu %llu %zu %.3f\n", static_cast<long long>(store->fileCount),
                static_cast<unsigned long long>(store->logicalByteCount),
                static_cast<unsigned long long>(store->allocatedByteCount),
                store->largestUnits.size(), watch.seconds());
    return 0;
}

/// Names are bytes, and what is printed may be a terminal's or a text's.
void printStore(const DeveloperStoreMeasurement& store, std::string_view top) {
    std::string text(title(store.kind));
    text.append(", ").append(terminalSafe(path::below(store.url.path(), top))).append("\n  ");
    text += RoomText::bytes(store.allocatedByteCount) + " on disk, ";
    text += RoomText::bytes(store.logicalByteCount) + " long, ";
    text += RoomText::counted(static_cast<std::uint64_t>(store.fileCount), "file", "files");
    if (store.isPartial) text += ", and some could not be read";
    text.append("\n  ").append(explanation(store.kind)).append("\n  ");
    text.append(store.shownCommand.empty() ? "its owner is not installed" : store.shownCommand);
    text += store.isOwnerInstalled ? " (installed)\n" : "\n";
    for (const DeveloperStoreUnit& unit : store.largestUnits) {
        text += "    " + RoomText::bytes(unit.byteCount) + "  " + terminalSafe(unit.name) + "\n";
    }
    std::fputs(text.c_str(), stdout);
}

int measureMachine(const char* folder) {
    const FileURL home = FileURL::folder(folder).appendingFolder("home");
    const DeveloperStoreInventory inventory{.userHome = home,
                                            .systemRoot = FileURL::folder(folder)};
    const ProgramsInFolders programs(ProgramsInFolders::usualFolders(home, ""));
    const auto stores = inventory.measure(programs);
    if (!stores) return 1;
    for (const DeveloperStoreMeasurement& store : *stores) printStore(store, folder);
    return 0;
}

} // namespace

int main(int count, char** arguments) {
    const std::string_view what = count < 3 ? "" : arguments[1];
    if (what == "machine") return measureMachine(arguments[2]);
    if (const auto kind = fromRawValue<DeveloperStoreKind>(what)) {
        return measureOne(*kind, arguments[2]);
    }
    std::fputs("MeasureStore KIND|machine FOLDER\n", stderr);
    return 64;
}
