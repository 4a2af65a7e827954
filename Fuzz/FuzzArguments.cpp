// The arguments behind "--cli"; zero bytes separate them.
#include <cstddef>
#include <cstdint>
#include <string>
#include <variant>
#include <vector>

#include "App/CommandLineMode.h"
#include "Base/Fault.h"

using tidyro::CommandLineMode;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::vector<std::string> arguments{"Tidyro", "--cli"};
    std::string argument;
    for (std::size_t i = 0; i < size; ++i) {
        if (data[i] != 0) {
            argument += static_cast<char>(data[i]);
        } else {
            arguments.push_back(std::move(argument));
            argument.clear();
        }
    }
    arguments.push_back(argument);
    const auto parsed = CommandLineMode::parse(arguments, "/home/ada");
    if (const auto* request = std::get_if<CommandLineMode::Request>(&parsed)) {
        tidyro::require(request->largest >= 1 && request->largest <= 1'000, "largest");
        tidyro::require(request->minimumBytes >= 1, "minimum");
        tidyro::require(request->path.starts_with('/'), "path");
    }
    return 0;
}
