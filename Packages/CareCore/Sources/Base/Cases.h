#pragma once

#include <array>
#include <concepts>
#include <cstddef>
#include <memory>
#include <string_view>
#include <type_traits>
#include <utility>
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

/// A variant that never changes and that many values share. For the member `value` of an
/// enumeration whose cases are large and of which a report holds hundreds of thousands alike.
template <class Cases>
class SharedCases {
  public:
    SharedCases() : SharedCases(Cases{}) {}
    template <class Case>
        requires std::constructible_from<Cases, Case> &&
                 (!std::same_as<std::remove_cvref_t<Case>, SharedCases>)
    SharedCases(Case&& value) // NOLINT: it stands for the variant, which takes its cases so, too
        : cases_(std::make_shared<const Cases>(std::forward<Case>(value))) {}

    [[nodiscard]] const Cases& cases() const { return *cases_; }

    friend bool operator==(const SharedCases& a, const SharedCases& b) {
        return a.cases_ == b.cases_ || *a.cases_ == *b.cases_;
    }

  private:
    std::shared_ptr<const Cases> cases_;
};

template <class T>
concept CaseEnumeration = requires(T enumeration) {
    typename T::Cases;
    requires std::same_as<decltype(enumeration.value), typename T::Cases> ||
                 std::same_as<decltype(enumeration.value), SharedCases<typename T::Cases>>;
    requires detail::areCases<typename T::Cases>;
};

/// The variant of an enumeration, whether it is shared or not.
template <CaseEnumeration Enumeration>
[[nodiscard]] const typename Enumeration::Cases& casesOf(const Enumeration& enumeration) {
    if constexpr (std::same_as<decltype(enumeration.value), typename Enumeration::Cases>) {
        return enumeration.value;
    } else {
        return enumeration.value.cases();
    }
}

} // namespace tidyro
