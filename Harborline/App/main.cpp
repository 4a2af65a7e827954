#include <new>
#include <string>
#include <vector>

#include <fmt/format.h>

#include "App/CommandLineMode.h"
#include "App/DuplicatesCommandLine.h"
#include "App/ScanDiagnostics.h"
#include "Base/Fault.h"
#include "Platform/Machine/LargeBlocks.h"

// Each start-up hook returns when it was not asked for, and ends the process when it was.
int main(int count, char** values) {
    std::set_new_handler(tidyro::outOfMemory);
    tidyro::platform::giveLargeBlocksBack();
    const std::vector<std::string> arguments(values, values + count);
    tidyro::ScanDiagnostics::runIfAsked(arguments);
    tidyro::DuplicatesCommandLine::runIfAsked(arguments);
    tidyro::CommandLineMode::runIfRequested(arguments);

    tidyro::exitMalformed(
        fmt::format("Tidyro shows what fills a disk and what could be taken back. In this version "
                    "it works from the terminal.\n{}",
                    tidyro::CommandLineMode::usageText));
}
