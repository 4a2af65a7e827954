// Builds the index of names of a folder and tells its size, for measuring the building alone.
//
//     BuildIndex FOLDER [WORKERS]

#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include "Platform/Machine/LargeBlocks.h"
#include "Rooms/Find/Services/Building/FindIndexBuilder.h"

int main(int count, char** arguments) {
    if (count < 2) {
        std::fputs("BuildIndex FOLDER [WORKERS]\n", stderr);
        return 64;
    }
    tidyro::platform::giveLargeBlocksBack(); // as the program does
    const std::int64_t workers = count > 2 ? std::strtoll(arguments[2], nullptr, 10) : 0;
    const auto storage =
        tidyro::FindIndexBuilder({.rootPath = arguments[1], .workerCount = workers}).run();
    if (!storage) {
        std::fputs("The index could not be built.\n", stderr);
        return 1;
    }
    std::printf("%ju entries, %ju bytes of names, %ju folded, %jd closed, %jd gone\n",
                std::uintmax_t{storage->count()}, std::uintmax_t{storage->names.size()},
                std::uintmax_t{storage->foldedNames.size()}, std::intmax_t{storage->deniedCount},
                std::intmax_t{storage->deletedCount});
    return 0;
}
