#include <new>
#include <string>
#include <vector>

#include <fmt/format.h>

#include "App/CommandLineMode.h"
#include "App/ScanDiagnostics.h"
#include "Base/Fault.h"
#include "Platform/Machine/LargeBlocks.h"
#include "Platform/Terminal/StandardStreams.h"
#include "Rooms/Duplicates/Report/DuplicatesCommandLine.h"

// Each start-up hook returns when it was not asked for, and ends the process when it was.
int main(int count, char** values) {
    std::set_new_handler(tidyro::outOfMemory);
    tidyro::platform::giveLargeBlocksBack();
    const std::vector<std::string> arguments(values, values + count);
    tidyro::ScanDiagnostics::runIfAsked(arguments);
    tidyro::DuplicatesCommandLine::runIfAsked(arguments);
    tidyro::CommandLineMode::runIfRequested(arguments);

    static_cast<void>(tidyro::platform::writeAll(
        tidyro::platform::Stream::error,
        fmt::format("Tidyro shows what fills a disk and what could be taken back. In this version "
                    "it works from the terminal.\n{}\n",
                    tidyro::CommandLineMode::usageText)));
    return tidyro::CommandLineMode::malformed;
}
