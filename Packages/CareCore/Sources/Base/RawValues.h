#pragma once

#include <array>
#include <cstddef>
#include <optional>
#include <span>
#include <string_view>

namespace tidyro {

/// Text enumerations. An enumeration gets one table, in its own namespace, that lists each case
/// with its raw text in the order of the cases; the order is their rank:
///
///     enum class Command { scan, duplicates };
///     constexpr RawValueTable<Command, 2> rawValues(RawValueTag<Command>) {
///         return {{{{Command::scan, "scan"}, {Command::duplicates, "duplicates"}}}};
///     }
///
///     rawValue(Command::scan)                // "scan"
///     fromRawValue<Command>("index")         // none
///     for (Command c : allCases<Command>())  // in the order of the table
///
/// The tables are found by the enumeration's namespace; a table out of order does not compile.
template <class E>
struct RawValueTag {};

template <class E>
struct RawValue {
    E value;
    std::string_view text;
};

template <class E, std::size_t Count>
struct RawValueTable {
    std::array<RawValue<E>, Count> rows;
};

template <class E>
concept TextEnumeration = requires { rawValues(RawValueTag<E>{}); };

namespace detail {

template <TextEnumeration E>
consteval auto orderedRawValues() {
    constexpr auto table = rawValues(RawValueTag<E>{});
    for (std::size_t i = 0; i < table.rows.size(); ++i) {
        if (static_cast<std::size_t>(table.rows[i].value) != i) throw "a case is out of order";
    }
    return table.rows;
}

template <TextEnumeration E>
inline constexpr auto rawValueRows = orderedRawValues<E>();

template <TextEnumeration E>
consteval auto caseList() {
    std::array<E, rawValueRows<E>.size()> cases{};
    for (std::size_t i = 0; i < cases.size(); ++i) cases[i] = rawValueRows<E>[i].value;
    return cases;
}

template <TextEnumeration E>
inline constexpr auto cases = caseList<E>();

} // namespace detail

template <TextEnumeration E>
[[nodiscard]] constexpr std::string_view rawValue(E value) {
    return detail::rawValueRows<E>[static_cast<std::size_t>(value)].text;
}

template <TextEnumeration E>
[[nodiscard]] constexpr std::optional<E> fromRawValue(std::string_view text) {
    for (const RawValue<E>& row : detail::rawValueRows<E>) {
        if (row.text == text) return row.value;
    }
    return std::nullopt;
}

template <TextEnumeration E>
[[nodiscard]] constexpr std::span<const E> allCases() {
    return detail::cases<E>;
}

} // namespace tidyro
