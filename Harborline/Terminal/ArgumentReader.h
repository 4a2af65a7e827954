#pragma once

#include <cstdint>
#include <initializer_list>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "Base/ArgumentText.h"

namespace tidyro {

/// Reads the arguments behind a switch, from left to right.
///
///     auto reader = ArgumentReader::behind({"--find-duplicates"}, arguments);
///     if (!reader) return CommandLineNotRequested{};
///     while (const auto argument = reader->next()) {
///         if (*argument == "--min-size") minimumBytes = reader->nextMinimumBytes();
///     }
///
/// The arguments have to outlive it.
class ArgumentReader {
  public:
    using Arguments = std::span<const std::string>;

    /// Begins behind the first argument that is one of the switches; none when no argument is. What
    /// follows "--cli" belongs to that switch alone, since the text of a query may read like
    /// another one.
    [[nodiscard]] static std::optional<ArgumentReader>
    behind(std::initializer_list<std::string_view> switches, Arguments arguments);

    /// The switch that was found.
    [[nodiscard]] const std::string& foundSwitch() const { return *switch_; }

    /// None at the end.
    [[nodiscard]] std::optional<std::string> next();
    /// None when the next argument is missing or no number of this type.
    template <class Integer>
    [[nodiscard]] std::optional<Integer> nextNumber() {
        const auto text = next();
        return text ? decimalArgument<Integer>(*text) : std::nullopt;
    }
    /// The size below which files are left out: at least 1, as empty files always are.
    [[nodiscard]] std::optional<std::uint64_t> nextMinimumBytes();
    /// Passes over the value of an unknown option: whatever does not begin with "-".
    void skipValue();

  private:
    ArgumentReader(const std::string& found, Arguments rest) : switch_(&found), rest_(rest) {}

    const std::string* switch_;
    Arguments rest_;
};

/// The path of a folder that a person typed, absolute and standardised. "~" and what begins with
/// "~/" stand for the home; "~somebody" is a name like any other.
[[nodiscard]] std::string folderArgument(std::string_view text, std::string_view home);

} // namespace tidyro
