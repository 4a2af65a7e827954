#include "Terminal/ArgumentReader.h"

#include <algorithm>

#include "Base/FileURL.h"

namespace tidyro {

std::optional<ArgumentReader>
ArgumentReader::behind(std::initializer_list<std::string_view> switches, Arguments arguments) {
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        if (std::ranges::find(switches, arguments[i]) != switches.end()) {
            return ArgumentReader(arguments[i], arguments.subspan(i + 1));
        }
        if (arguments[i] == "--cli") return std::nullopt;
    }
    return std::nullopt;
}

std::optional<std::string> ArgumentReader::next() {
    if (rest_.empty()) return std::nullopt;
    const std::string& first = rest_.front();
    rest_ = rest_.subspan(1);
    return first;
}

std::optional<std::uint64_t> ArgumentReader::nextMinimumBytes() {
    const auto bytes = nextNumber<std::uint64_t>();
    return bytes ? std::optional(std::max<std::uint64_t>(*bytes, 1)) : std::nullopt;
}

void ArgumentReader::skipValue() {
    if (!rest_.empty() && !rest_.front().starts_with('-')) rest_ = rest_.subspan(1);
}

std::string folderArgument(std::string_view text, std::string_view home) {
    const bool isBelowHome = text == "~" || text.starts_with("~/");
    const std::string path =
        isBelowHome ? std::string(home) + std::string(text.substr(1)) : std::string(text);
    return FileURL::folder(path).path();
}

} // namespace tidyro
