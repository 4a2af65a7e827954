#include "App/DuplicatesCommandLine.h"

#include <expected>

#include "Base/JSONCoding.h"
#include "Platform/Folders/WellKnownFolders.h"
#include "Platform/Terminal/StandardStreams.h"
#include "Rooms/Duplicates/Report/DuplicatesText.h"
#include "Rooms/Duplicates/Report/ProgressLine.h"
#include "Rooms/Duplicates/Search/DuplicateEngine.h"

namespace tidyro {

namespace {

std::expected<DuplicateReport, DuplicateEngine::Error>
searchShowingProgress(const DuplicatesCommandLine::Request& request) {
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

} // namespace

const std::string_view DuplicatesCommandLine::usageText =
    "Usage: Tidyro --find-duplicates <folder> [--min-size BYTES] [--include-system] [--json]\n"
    "Lists every set of byte-identical files with what may go and what has to stay.\n"
    "Nothing is moved or deleted.";

CommandLineParse<DuplicatesCommandLine::Request>
DuplicatesCommandLine::parse(ArgumentReader::Arguments arguments, std::string_view home) {
    auto reader = ArgumentReader::behind({"--find-duplicates"}, arguments);
    if (!reader) return CommandLineNotRequested{};
    Request request{.folder = {}};
    while (const auto argument = reader->next()) {
        if (*argument == "--json") {
            request.asJSON = true;
        } else if (*argument == "--include-system") {
            request.includeSystem = true;
        } else if (*argument == "--min-size") {
            const auto bytes = reader->nextMinimumBytes();
            if (!bytes) return CommandLineUsage{usageText};
            request.minimumBytes = *bytes;
        } else if (argument->starts_with('-') || argument->empty() || !request.folder.empty()) {
            return CommandLineUsage{usageText};
        } else {
            request.folder = folderArgument(*argument, home);
        }
    }
    if (request.folder.empty()) return CommandLineUsage{usageText};
    return request;
}

int DuplicatesCommandLine::run(const Request& request, const TextOutput& output) {
    if (!output.confirmFolder(request.folder)) return ExitStatus::noFolder;
    const auto report = searchShowingProgress(request);
    if (!report) return output.tellStop(DuplicateEngine::description(report.error()));
    const DuplicatesModel model;
    if (request.asJSON) {
        output.line("{}", jsonText(documentOf(*report, model), 2));
    } else {
        writeText(
            *report, model, [&](std::string name) { return output.shown(std::move(name)); },
            output.write);
    }
    return ExitStatus::succeeded;
}

void DuplicatesCommandLine::runIfAsked(ArgumentReader::Arguments arguments) {
    runAndExit(parse(arguments, platform::homeFolder().path()), run);
}

} // namespace tidyro
