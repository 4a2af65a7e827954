#pragma once

#include <cstddef>
#include <string_view>
#include <tuple>
#include <type_traits>
#include <utility>

namespace tidyro {

/// Value records: plain aggregates with one list of their fields, which drives JSON both ways.
///
///     struct ReclaimGoal {
///         std::uint64_t byteCount;
///         std::optional<std::string> purpose = std::nullopt;
///
///         static constexpr auto fields() {
///             return fieldList<ReclaimGoal>(field("byteCount", &ReclaimGoal::byteCount),
///                                           field("purpose", &ReclaimGoal::purpose));
///         }
///         bool operator==(const ReclaimGoal&) const = default;
///     };
///
/// The order of the list is the order of the keys. A list that misses a field does not compile.
template <class Record, class Value>
struct Field {
    std::string_view key;
    Value Record::* member;
};

template <class Record, class Value>
[[nodiscard]] constexpr Field<Record, Value> field(std::string_view key, Value Record::* member) {
    return {key, member};
}

namespace detail {

struct ConvertsToAnything {
    template <class T>
    operator T() const; // never defined: only asked whether it would fit
};

template <class Record, std::size_t... Index>
constexpr bool takes(std::index_sequence<Index...>) {
    return requires { Record{(static_cast<void>(Index), ConvertsToAnything{})...}; };
}

/// How many values an aggregate can be made from.
template <class Record, std::size_t Count = 0>
constexpr std::size_t fieldCount() {
    if constexpr (takes<Record>(std::make_index_sequence<Count + 1>())) {
        return fieldCount<Record, Count + 1>();
    } else {
        return Count;
    }
}

} // namespace detail

template <class Record, class... Fields>
[[nodiscard]] constexpr std::tuple<Fields...> fieldList(Fields... fields) {
    static_assert(std::is_aggregate_v<Record>, "a record is a plain aggregate");
    static_assert(detail::fieldCount<Record>() == sizeof...(Fields),
                  "the field list leaves a field out");
    return {fields...};
}

template <class T>
concept RecordType = requires { T::fields(); };

} // namespace tidyro
