#pragma once

#include <bit>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>
#include <tuple>
#include <type_traits>
#include <variant>

#include "Base/Cases.h"
#include "Base/FileURL.h"
#include "Base/RawValues.h"
#include "Base/Record.h"
#include "Base/Timestamp.h"
#include "Base/UUID.h"

/// A 64-bit hash of everything that JSONCoding codes: the same on every machine, in every run and
/// from every compiler, and equal for equal values.
///
///     stableHash(goal)                                                // may be kept in a file
///     std::unordered_map<LocalItemID, CleanupCandidate, StableHasher>   // records as keys
///
/// A value is hashed in this form, byte by byte:
///
/// - a number as 8 bytes with the lowest first, and -0.0 as 0.0;
/// - text, lists and sets with their count in front;
/// - an optional behind a byte that tells whether it is there;
/// - an enumeration by its raw text or the name of its case;
/// - a record as its fields in the order of the list.
///
/// So a field that is added, moved or retyped changes the hash; a renamed one does not. The bytes
/// of one value are never the beginning of those of another value of the same type.
///
/// Different values have the same hash by accident only, but somebody who looks for such values
/// finds them. So it is no fingerprint for data that others made.
namespace tidyro {

/// FNV-1a with 64 bits: a byte a step, without tables, alike on every machine. By itself the last
/// bytes hardly reach its high bits, and high bits never reach its low ones. `value` mixes them,
/// since tables take their places from either end.
class StableHashState {
  public:
    constexpr void addByte(std::uint8_t byte) noexcept {
        state_ = (state_ ^ byte) * 0x0000'0100'0000'01B3;
    }
    constexpr void addNumber(std::uint64_t number) noexcept {
        for (int shift = 0; shift < 64; shift += 8) {
            addByte(static_cast<std::uint8_t>(number >> shift & 0xFF));
        }
    }
    constexpr void addText(std::string_view text) noexcept {
        addNumber(text.size());
        for (const char character : text) addByte(static_cast<std::uint8_t>(character));
    }
    [[nodiscard]] constexpr std::uint64_t value() const noexcept {
        std::uint64_t mixed = (state_ ^ state_ >> 32) * 0x9E37'79B9'7F4A'7C15;
        mixed = (mixed ^ mixed >> 29) * 0x9E37'79B9'7F4A'7C15;
        return mixed ^ mixed >> 32;
    }

  private:
    std::uint64_t state_ = 0xCBF2'9CE4'8422'2325;
};

namespace detail {

template <class T>
inline constexpr bool isOptional = false;
template <class T>
inline constexpr bool isOptional<std::optional<T>> = true;

/// A container that gives its elements in one order. One that hashes by itself does not.
template <class T>
concept OrderedElements = requires(const T& list) {
    list.begin();
    list.end();
    list.size();
} && !requires { typename T::hasher; };

template <class>
inline constexpr bool isHashed = false;

} // namespace detail

/// Adds one value; a type that is not coded as JSON does not compile.
template <class T>
void addToHash(StableHashState& state, const T& value) {
    if constexpr (RecordType<T>) {
        std::apply([&](const auto&... field) { (addToHash(state, value.*(field.member)), ...); },
                   T::fields());
    } else if constexpr (CaseEnumeration<T>) {
        std::visit(
            [&]<class Case>(const Case& values) {
                state.addText(Case::caseName);
                addToHash(state, values);
            },
            casesOf(value));
    } else if constexpr (TextEnumeration<T>) {
        state.addText(rawValue(value));
    } else if constexpr (std::same_as<T, bool>) {
        state.addByte(value ? 1 : 0);
    } else if constexpr (std::signed_integral<T>) {
        state.addNumber(static_cast<std::uint64_t>(static_cast<std::int64_t>(value)));
    } else if constexpr (std::unsigned_integral<T>) {
        state.addNumber(value);
    } else if constexpr (std::same_as<T, double>) {
        state.addNumber(std::bit_cast<std::uint64_t>(value == 0 ? 0.0 : value));
    } else if constexpr (std::convertible_to<const T&, std::string_view>) {
        state.addText(value);
    } else if constexpr (std::same_as<T, Timestamp>) {
        addToHash(state, value.secondsSinceReference());
    } else if constexpr (std::same_as<T, UUID>) {
        for (const std::uint8_t byte : value.bytes()) state.addByte(byte);
    } else if constexpr (std::same_as<T, FileURL>) {
        state.addText(value.path());
        addToHash(state, value.isFolder());
    } else if constexpr (detail::isOptional<T>) {
        addToHash(state, value.has_value());
        if (value) addToHash(state, *value);
    } else if constexpr (detail::OrderedElements<T>) {
        state.addNumber(value.size());
        for (const auto& element : value) addToHash(state, element);
    } else {
        static_assert(detail::isHashed<T>, "this type has no stable hash");
    }
}

template <class T>
[[nodiscard]] std::uint64_t stableHash(const T& value) {
    StableHashState state;
    addToHash(state, value);
    return state.value();
}

/// The hash of a constant table of texts, while the program is compiled. A name that slips into
/// such a table, or out of it, changes what may be removed; so its hash stands beside the table:
///
///     static_assert(tableHash(reviewRoots) == 0x...);
template <class Texts>
consteval std::uint64_t tableHash(const Texts& texts) {
    StableHashState state;
    state.addNumber(texts.size());
    for (const std::string_view text : texts) state.addText(text);
    return state.value();
}

/// The hash for unordered containers whose keys are records.
struct StableHasher {
    template <class T>
    [[nodiscard]] std::size_t operator()(const T& value) const {
        return stableHash(value);
    }
};

} // namespace tidyro
