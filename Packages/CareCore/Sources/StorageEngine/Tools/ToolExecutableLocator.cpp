#include "StorageEngine/Tools/ToolExecutableLocator.h"

#include <algorithm>
#include <array>

namespace tidyro::ToolExecutableLocator {

namespace {

/// At least three parts of digits alone, with full stops between them.
bool isVersionNumber(std::string_view text) {
    std::size_t parts = 0;
    for (;;) {
        const std::string_view part = text.substr(0, text.find('.'));
        const auto isDigit = [](char byte) { return byte >= '0' && byte <= '9'; };
        if (part.empty() || !std::ranges::all_of(part, isDigit)) return false;
        ++parts;
        if (part.size() == text.size()) return parts >= 3;
        text.remove_prefix(part.size() + 1);
    }
}

} // namespace

std::optional<std::string> uvVersionIn(std::string_view output) {
    // The line break behind a short answer belongs to none of its words.
    output = output.substr(0, output.find_last_not_of("\r\n") + 1);
    std::array<std::string_view, 2> words;
    for (std::string_view& word : words) {
        output.remove_prefix(std::min(output.find_first_not_of(' '), output.size()));
        word = output.substr(0, output.find(' '));
        output.remove_prefix(word.size());
    }
    if (words[0] != "uv" || !isVersionNumber(words[1])) return std::nullopt;
    return std::string(words[1]);
}

std::optional<ValidatedExecutable> validateUV(const FileURL& at, bool allowTemporaryLocation,
                                              const FileURL& home) {
    return ValidatedExecutable::validated(at,
                                          {.environment = BoundedProcess::defaultEnvironment(home),
                                           .allowTemporaryLocation = allowTemporaryLocation,
                                           .version = uvVersionIn,
                                           .scripts = ValidatedExecutable::Scripts::refused});
}

std::optional<ValidatedExecutable> findUV(const FileURL& home) {
    const std::array<FileURL, 6> places{
        home.appending(".local/bin/uv"),       home.appending(".cargo/bin/uv"),
        FileURL::file("/opt/homebrew/bin/uv"), FileURL::file("/usr/local/bin/uv"),
        FileURL::file("/usr/bin/uv"),          FileURL::file("/home/linuxbrew/.linuxbrew/bin/uv"),
    };
    for (const FileURL& place : places) {
        if (auto found = validateUV(place, false, home)) return found;
    }
    return std::nullopt;
}

} // namespace tidyro::ToolExecutableLocator
