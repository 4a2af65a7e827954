#include "Platform/Folders/TrashNote.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <memory>

#include "Base/Calendar.h"
#include "Base/FileURL.h"
#include "Base/PathText.h"

namespace tidyro::platform {

namespace {

constexpr std::string_view noteHead = "[Trash Info]";
constexpr std::string_view pathKey = "Path=";
constexpr std::string_view dateKey = "DeletionDate=";

/// Reads `count` digits. None for anything else.
std::optional<int> takeNumber(std::string_view& text, std::size_t count) {
    int number = 0;
    const std::string_view digits = text.substr(0, count);
    if (digits.size() != count || digits.front() == '-') return std::nullopt;
    const char* const end = std::to_address(digits.end());
    const auto read = std::from_chars(std::to_address(digits.begin()), end, number);
    if (read.ec != std::errc() || read.ptr != end) return std::nullopt;
    text.remove_prefix(count);
    return number;
}

/// "2026-11-21T09:30:12" in the time of the place where the person is. What follows is left out.
std::optional<Timestamp> momentIn(std::string_view text) {
    constexpr std::array<std::size_t, 6> digits{4, 2, 2, 2, 2, 2};
    constexpr std::string_view separators = "--T::";
    constexpr std::array<int, 6> maxima{9'999, 12, 31, 23, 59, 60};
    std::array<int, 6> numbers{};
    for (std::size_t i = 0; i < digits.size(); ++i) {
        if (i > 0) {
            if (!text.starts_with(separators[i - 1])) return std::nullopt;
            text.remove_prefix(1);
        }
        const auto number = takeNumber(text, digits.at(i));
        if (!number || *number > maxima.at(i) || (i < 3 && *number == 0)) return std::nullopt;
        numbers.at(i) = *number;
    }
    const auto [year, month, day, hour, minute, second] = numbers;
    const Calendar calendar = Calendar::current();
    const auto secondOfDay = [](int h, int m, int s) { return h * 3'600 + m * 60 + s; };
    const int wanted = secondOfDay(hour, minute, second);
    const Timestamp guess = calendar.beginningOfDay(year, month, day).adding(wanted);
    // On a day on which the clocks are set the guess is off by as much.
    const DateComponents seen = calendar.components(guess);
    if (seen.day != day) return guess;
    return guess.adding(wanted - secondOfDay(seen.hour, seen.minute, seen.second));
}

std::optional<std::string> placeIn(std::string_view written, std::string_view top) {
    const auto bytes = percentDecoded(written);
    if (!bytes || bytes->empty()) return std::nullopt;
    const auto names = path::components(*bytes);
    if (std::ranges::find(names, "..") != names.end()) return std::nullopt;
    const bool isAbsolute = bytes->starts_with('/');
    if (!isAbsolute && top.empty()) return std::nullopt;
    std::string place = path::standardized(isAbsolute ? *bytes : path::joined(top, *bytes));
    if (place == "/" || place == top) return std::nullopt;
    return place;
}

} // namespace

std::string trashNote(std::string_view path, std::string_view top, Timestamp at) {
    constexpr std::string_view scheme = "file://";
    const std::string noted = "/" + std::string(path::below(path, top.empty() ? "/" : top));
    std::string written = FileURL::file(noted).text().substr(scheme.size());
    if (!top.empty()) written.erase(0, 1);
    const DateComponents date = Calendar::current().components(at);
    std::string note(noteHead);
    note.append("\n").append(pathKey).append(written).append("\n").append(dateKey);
    const auto add = [&](int number, int unit, char after) {
        for (; unit > 0; unit /= 10) note += static_cast<char>('0' + number / unit % 10);
        note += after;
    };
    add(date.year, 1'000, '-');
    add(date.month, 10, '-');
    add(date.day, 10, 'T');
    add(date.hour, 10, ':');
    add(date.minute, 10, ':');
    add(date.second, 10, '\n');
    return note;
}

std::optional<TrashNote> readTrashNote(std::string_view text, std::string_view top) {
    bool isFirstLine = true;
    std::optional<std::string_view> path;
    std::optional<std::string_view> date;
    while (!text.empty()) {
        std::string_view line = text.substr(0, text.find('\n'));
        text.remove_prefix(std::min(line.size() + 1, text.size()));
        if (line.ends_with('\r')) line.remove_suffix(1);
        if (isFirstLine && line != noteHead) return std::nullopt;
        if (!isFirstLine && line.starts_with('[')) break; // a group of another program
        isFirstLine = false;
        if (!path && line.starts_with(pathKey)) path = line.substr(pathKey.size());
        if (!date && line.starts_with(dateKey)) date = line.substr(dateKey.size());
    }
    if (!path) return std::nullopt;
    auto place = placeIn(*path, top);
    if (!place) return std::nullopt;
    return TrashNote{.path = *std::move(place), .deletedAt = date ? momentIn(*date) : std::nullopt};
}

} // namespace tidyro::platform
