#include "Rooms/Duplicates/Report/DuplicatesCommandLine.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <system_error>

#include <fmt/format.h>

#include "Base/ArgumentText.h"
#include "Base/UnicodeText.h"
#include "Platform/Folders/WellKnownFolders.h"
#include "Platform/Terminal/OutputLines.h"
#include "Platform/Terminal/StandardStreams.h"
#include "Rooms/Duplicates/Report/DuplicatesText.h"
#include "Rooms/Duplicates/Report/ProgressLine.h"
#include "Rooms/Duplicates/Search/DuplicateEngine.h"

namespace tidyro {

namespace {

constexpr int succeeded = 0;
constexpr int stopped = 1;
constexpr int malformed = 64;
constexpr int noFolder = 66;

std::expected<DuplicateReport, DuplicateEngine::Error>
search(const DuplicatesCommandLine::Request& request) {
    const DuplicateSearchOptions options{.roots = {FileURL::folder(request.folder)},
                                         .minimumBytes = request.minimumBytes,
                                         .includeSystemVolumes = request.includeSystem,
                                         .home = platform::homeFolder()};
    if (!platform::isTerminal(platform::Stream::error)) return DuplicateEngine().run(options);
    ProgressLine line([](std::string_view text) {
        static_cast<void>(platform::writeAll(platform::Stream::error, text));
    });
    auto report = DuplicateEngine().run(
        options, nullptr, [&](const DuplicateProgress& progress) { line.show(progress); });
    line.clear();
    return report;
}

int run(const DuplicatesCommandLine::Request& request, platform::OutputLines& lines) {
    const bool escapesNames = platform::isTerminal(platform::Stream::output);
    const auto shown = [&](const std::string& name) {
        return escapesNames ? terminalSafe(name) : name;
    };
    std::error_code failed;
    if (!std::filesystem::is_directory(request.folder, failed)) {
        lines.write(fmt::format("No folder at {}.\n", shown(request.folder)));
        return noFolder;
    }
    const auto report = search(request);
    if (!report) {
        lines.write(
            fmt::format("Stopped: {}\n", shown(DuplicateEngine::description(report.error()))));
        return stopped;
    }
    const DuplicatesModel model;
    if (request.asJSON) {
        lines.write(jsonText(documentOf(*report, model), 2) + "\n");
    } else {
        writeText(*report, model, shown, [&](std::string_view text) { lines.write(text); });
    }
    return succeeded;
}

} // namespace

const std::string_view DuplicatesCommandLine::usageText =
    "Usage: Tidyro --find-duplicates <folder> [--min-size BYTES] [--include-system] [--json]\n"
    "Lists every set of byte-identical files with what may go and what has to stay.\n"
    "Nothing is moved or deleted.";

std::optional<std::expected<DuplicatesCommandLine::Request, std::string_view>>
DuplicatesCommandLine::parse(std::span<const std::string> arguments, std::string_view home) {
    const auto flag = std::ranges::find(arguments, "--find-duplicates");
    if (flag == arguments.end()) return std::nullopt;
    const std::expected<Request, std::string_view> usage = std::unexpected(usageText);
    Request request{.folder = {}};
    for (auto at = flag + 1; at != arguments.end(); ++at) {
        if (*at == "--json") {
            request.asJSON = true;
        } else if (*at == "--include-system") {
            request.includeSystem = true;
        } else if (*at == "--min-size") {
            const auto bytes =
                at + 1 == arguments.end() ? std::nullopt : decimalArgument<std::uint64_t>(*++at);
            if (!bytes) return usage;
            request.minimumBytes = std::max<std::uint64_t>(*bytes, 1);
        } else if (at->starts_with('-') || at->empty() || !request.folder.empty()) {
            return usage;
        } else {
            request.folder = folderArgument(*at, home);
        }
    }
    if (request.folder.empty()) return usage;
    return request;
}

void DuplicatesCommandLine::runIfAsked(std::span<const std::string> arguments) {
    const auto parsed = parse(arguments, platform::homeFolder().path());
    if (!parsed) return;
    platform::OutputLines lines;
    int status = malformed;
    if (*parsed) {
        status = lines.ending(run(**parsed, lines));
    } else {
        static_cast<void>(
            platform::writeAll(platform::Stream::error, fmt::format("{}\n", parsed->error())));
    }
    // No thread of ours runs by now.
    std::exit(status); // NOLINT(concurrency-mt-unsafe)
}

} // namespace tidyro
