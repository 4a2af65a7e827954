#pragma once

#include <array>
#include <concepts>
#include <cstddef>
#include <string_view>
#include <variant>

#include "Base/Record.h"

namespace tidyro {

/// Enumerations with associated values: a named type around a variant of small records, each of
/// which carries the name of its case.
///
///     struct Circle {
///         double radius;
///
///         static constexpr std::string_view caseName = "circle";
///         static constexpr auto fields() {
///             return fieldList<Circle>(field("radius", &Circle::radius));
///         }
///         bool operator==(const Circle&) const = default;
///     };
///     struct Shape {
///         using Cases = std::variant<Circle, Square>;
///         Cases value;
///         bool operator==(const Shape&) const = default;
///     };
///
///     toJSON(Shape{Circle{.radius = 2}})    // {"circle":{"radius":2.0}}
///
/// A value without a label has the key "_0". The cases stand outside the type that lists them.
/// Inside it they would not compile: a variant asks at once whether they can be made from nothing,
/// and a nested class with defaults cannot answer before the class around it is complete.
template <class T>
concept CaseRecord = RecordType<T> && requires {
    { T::caseName } -> std::convertible_to<std::string_view>;
};

namespace detail {

template <class T>
inline constexpr bool areCases = false;

/// No two cases may share a name: the second would never be read back.
template <CaseRecord... Case>
inline constexpr bool areCases<std::variant<Case...>> = [] {
    const std::array<std::string_view, sizeof...(Case)> names{Case::caseName...};
    for (std::size_t i = 0; i < names.size(); ++i) {
        for (std::size_t j = 0; j < i; ++j) {
            if (names[i] == names[j]) return false;
        }
    }
    return true;
}();

} // namespace detail

template <class T>
concept CaseEnumeration = requires(T enumeration) {
    typename T::Cases;
    requires std::same_as<decltype(enumeration.value), typename T::Cases>;
    requires detail::areCases<typename T::Cases>;
};

} // namespace tidyro
