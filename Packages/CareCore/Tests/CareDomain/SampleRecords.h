#pragma once

#include <concepts>
#include <cstdint>
#include <optional>
#include <string>
#include <tuple>
#include <type_traits>
#include <utility>
#include <variant>

#include "Base/Cases.h"
#include "Base/FileURL.h"
#include "Base/RawValues.h"
#include "Base/SharedText.h"
#include "Base/Timestamp.h"
#include "Base/UUID.h"

/// Any record, filled to the brim by its own field list: every optional is there, every list has
/// two elements, and no two values of one record are alike.
///
///     FileObservation observation = testing::sample<FileObservation>(seed);
///     observation = testing::withoutOptionals(observation);
namespace tidyro::testing {

class SampleMaker {
  public:
    explicit SampleMaker(std::uint64_t seed) : next_(seed) {}

    template <class T>
    void fill(T& value) {
        const std::uint64_t number = next_++;
        if constexpr (RecordType<T>) {
            std::apply([&](const auto&... field) { (fill(value.*(field.member)), ...); },
                       T::fields());
        } else if constexpr (CaseEnumeration<T>) {
            fillCase(value, number,
                     std::make_index_sequence<std::variant_size_v<typename T::Cases>>());
        } else if constexpr (TextEnumeration<T>) {
            value = allCases<T>()[number % allCases<T>().size()];
        } else if constexpr (std::integral<T>) {
            value = static_cast<T>(number % 3 == 0 ? ~number : number);
        } else if constexpr (std::same_as<T, std::string>) {
            value = "\"\u00E4 " + std::to_string(number);
        } else if constexpr (std::same_as<T, SharedText>) {
            value = SharedText::made("\"\u00E4 " + std::to_string(number));
        } else if constexpr (std::same_as<T, SharedText>) {
            value = SharedText::made("\u00DF " + std::to_string(number));
        } else if constexpr (std::same_as<T, Timestamp>) {
            value = Timestamp::sinceReference(static_cast<double>(number) * 1e7 / 3);
        } else if constexpr (std::same_as<T, UUID>) {
            value = UUID({static_cast<std::uint8_t>(number), 255});
        } else if constexpr (std::same_as<T, FileURL>) {
            const std::string path = "/\xFF %/" + std::to_string(number);
            value = number % 2 == 0 ? FileURL::folder(path) : FileURL::file(path);
        } else if constexpr (requires { value.reset(); }) {
            fill(value.emplace()); // an optional
        } else {
            for (int i = 0; i < 2; ++i) {
                typename T::value_type element{};
                fill(element);
                if constexpr (requires { value.push_back(element); }) {
                    value.push_back(std::move(element));
                } else {
                    value.insert(std::move(element));
                }
            }
        }
    }

  private:
    template <class T, std::size_t... Index>
    void fillCase(T& value, std::uint64_t number, std::index_sequence<Index...>) {
        typename T::Cases cases;
        ((number % sizeof...(Index) == Index ? fill(cases.template emplace<Index>()) : void()),
         ...);
        value.value = std::move(cases);
    }

    std::uint64_t next_;
};

template <class T>
[[nodiscard]] T sample(std::uint64_t seed = 1) {
    T value{};
    SampleMaker(seed).fill(value);
    return value;
}

/// The record with as little in it as there can be.
template <RecordType Record>
[[nodiscard]] Record withoutOptionals(Record record) {
    const auto empty = [&](auto& value) {
        if constexpr (requires { value.reset(); }) value.reset();
    };
    std::apply([&](const auto&... field) { (empty(record.*(field.member)), ...); },
               Record::fields());
    return record;
}

} // namespace tidyro::testing
