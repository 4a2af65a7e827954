#pragma once

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>
#include <type_traits>

#include "Base/UnicodeText.h"

namespace tidyro {

/// A fixed table from short lower-case words to values, made at compile time. Names are looked up
/// without regard to ASCII case. It is for look-ups that a walk makes for each entry: they allocate
/// nothing, copy no name and take one or two probes (open addressing).
template <class Value, std::size_t Rows>
class LowercaseTable {
  public:
    struct Row {
        std::string_view word;
        Value value{};
    };

    /// When two rows have one word, the later one counts.
    constexpr explicit LowercaseTable(const std::array<Row, Rows>& rows) {
        for (const Row& row : rows) {
            std::size_t at = hashed(row.word) % size;
            while (!slots_[at].word.empty() && slots_[at].word != row.word) at = (at + 1) % size;
            slots_[at] = row;
            if (row.word.size() > maxLength_) maxLength_ = row.word.size();
        }
    }

    [[nodiscard]] constexpr std::optional<Value> find(std::string_view name) const noexcept {
        if (name.empty() || name.size() > maxLength_) return std::nullopt;
        for (std::size_t at = hashed(name) % size; !slots_[at].word.empty(); at = (at + 1) % size) {
            if (equals(name, slots_[at].word)) return slots_[at].value;
        }
        return std::nullopt;
    }
    [[nodiscard]] constexpr bool contains(std::string_view name) const noexcept {
        return find(name).has_value();
    }

  private:
    static constexpr std::size_t size = std::bit_ceil(Rows * 3);

    [[nodiscard]] static constexpr std::size_t hashed(std::string_view word) noexcept {
        std::uint32_t hash = 2'166'136'261U; // FNV-1a
        for (const char byte : word) {
            hash = (hash ^ static_cast<unsigned char>(lowerASCII(byte))) * 16'777'619U;
        }
        return hash ^ hash >> 15;
    }
    [[nodiscard]] static constexpr bool equals(std::string_view name,
                                               std::string_view word) noexcept {
        if (name.size() != word.size()) return false;
        for (std::size_t i = 0; i < name.size(); ++i) {
            if (lowerASCII(name[i]) != word[i]) return false;
        }
        return true;
    }

    std::array<Row, size> slots_{};
    std::size_t maxLength_ = 0;
};

/// The value in a table that is only a set of words.
struct Listed {
    bool operator==(const Listed&) const = default;
};

/// How many words a list separated by single blanks holds.
[[nodiscard]] constexpr std::size_t wordCount(std::string_view list) {
    std::size_t count = list.empty() ? 0 : 1;
    for (const char byte : list) count += byte == ' ' ? 1 : 0;
    return count;
}

/// Takes the next word off the front of such a list.
[[nodiscard]] constexpr std::string_view takeWord(std::string_view& list) {
    const std::size_t end = list.find(' ');
    const std::string_view word = list.substr(0, end);
    list = end == std::string_view::npos ? std::string_view{} : list.substr(end + 1);
    return word;
}

/// A value and the list of the words that have it.
template <class Value>
struct ValueWords {
    Value value;
    std::string_view words;
};

/// A table of the words of all `Lists`, an array of `ValueWords`.
template <const auto& Lists>
[[nodiscard]] consteval auto lowercaseTable() {
    constexpr std::size_t count = [] {
        std::size_t words = 0;
        for (const auto& list : Lists) words += wordCount(list.words);
        return words;
    }();
    using Table = LowercaseTable<std::remove_cvref_t<decltype(Lists.front().value)>, count>;
    std::array<typename Table::Row, count> rows{};
    std::size_t at = 0;
    for (const auto& list : Lists) {
        std::string_view rest = list.words;
        while (!rest.empty()) rows[at++] = {.word = takeWord(rest), .value = list.value};
    }
    return Table(rows);
}

/// A table whose words all have one value, from a list of `Count` words.
template <std::size_t Count>
[[nodiscard]] consteval LowercaseTable<Listed, Count> lowercaseSet(std::string_view list) {
    std::array<typename LowercaseTable<Listed, Count>::Row, Count> rows{};
    for (auto& row : rows) row.word = takeWord(list);
    return LowercaseTable<Listed, Count>(rows);
}

} // namespace tidyro
