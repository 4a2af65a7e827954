#pragma once

#include <concepts>
#include <cstdint>
#include <limits>
#include <string>
#include <utility>
#include <vector>

#include "Base/FileURL.h"
#include "Base/JSON.h"
#include "Base/RawValues.h"
#include "Base/SharedText.h"
#include "Base/Timestamp.h"
#include "Base/UUID.h"

/// The coding of the values that records are made of: see Base/JSONCoding.h.
namespace tidyro {

// The simple types ---------------------------------------------------------------------------

template <>
struct JSONCoder<bool> {
    static JSON encode(bool value) { return value; }
    static Decoded<bool> decode(const JSON& json);
};
template <>
struct JSONCoder<double> {
    static JSON encode(double value) { return value; }
    static Decoded<double> decode(const JSON& json);
};
template <>
struct JSONCoder<std::string> {
    static JSON encode(const std::string& value);
    static Decoded<std::string> decode(const JSON& json);
};
template <>
struct JSONCoder<SharedText> {
    static JSON encode(const SharedText& value);
    static Decoded<SharedText> decode(const JSON& json);
};
template <>
struct JSONCoder<Timestamp> {
    static JSON encode(Timestamp value) { return value.secondsSinceReference(); }
    static Decoded<Timestamp> decode(const JSON& json);
};
template <>
struct JSONCoder<FileURL> {
    static JSON encode(const FileURL& value) { return value.text(); }
    static Decoded<FileURL> decode(const JSON& json);
};
template <>
struct JSONCoder<UUID> {
    static JSON encode(const UUID& value) { return value.text(); }
    static Decoded<UUID> decode(const JSON& json);
};

template <std::unsigned_integral T>
    requires(!std::same_as<T, bool>)
struct JSONCoder<T> {
    static JSON encode(T value) { return value; }
    static Decoded<T> decode(const JSON& json) {
        if (!json.is_number_unsigned() ||
            json.get<std::uint64_t>() > std::numeric_limits<T>::max()) {
            return decodingFailure(DecodingError::Kind::typeMismatch,
                                   "Expected an unsigned number in range.");
        }
        return static_cast<T>(json.get<std::uint64_t>());
    }
};

template <std::signed_integral T>
struct JSONCoder<T> {
    static JSON encode(T value) { return value; }
    static Decoded<T> decode(const JSON& json) {
        if (json.is_number_integer() &&
            !(json.is_number_unsigned() &&
              json.get<std::uint64_t>() >
                  static_cast<std::uint64_t>(std::numeric_limits<T>::max())) &&
            json.get<std::int64_t>() >= std::numeric_limits<T>::min() &&
            json.get<std::int64_t>() <= std::numeric_limits<T>::max()) {
            return static_cast<T>(json.get<std::int64_t>());
        }
        return decodingFailure(DecodingError::Kind::typeMismatch, "Expected a number in range.");
    }
};

template <TextEnumeration E>
struct JSONCoder<E> {
    static JSON encode(E value) { return rawValue(value); }
    static Decoded<E> decode(const JSON& json) {
        const auto text = fromJSON<std::string>(json);
        if (!text) return std::unexpected(text.error());
        if (const auto value = fromRawValue<E>(*text)) return *value;
        return decodingFailure(DecodingError::Kind::dataCorrupted,
                               "Cannot initialize the enumeration from \"" + *text + "\".");
    }
};

// Lists and sets -----------------------------------------------------------------------------

/// std::set, and every other class whose member types say that it keeps its elements in order. A
/// set without an order is not coded: its text would differ from run to run.
template <class T>
concept OrderedSet = requires(T set, typename T::value_type value) {
    typename T::key_compare;
    requires std::same_as<typename T::key_type, typename T::value_type>;
    set.insert(std::move(value));
};

namespace detail {

template <class List, class Add>
Decoded<List> decodeList(const JSON& json, Add add) {
    if (!json.is_array()) {
        return decodingFailure(DecodingError::Kind::typeMismatch, "Expected a list.");
    }
    List list;
    for (const JSON& element : json) {
        auto value = fromJSON<typename List::value_type>(element);
        if (!value) return std::unexpected(std::move(value.error()));
        add(list, std::move(*value));
    }
    return list;
}

template <class List>
JSON encodeList(const List& list) {
    JSON array = JSON::array();
    for (const auto& element : list) array.push_back(toJSON(element));
    return array;
}

} // namespace detail

template <class T>
struct JSONCoder<std::vector<T>> {
    static JSON encode(const std::vector<T>& list) { return detail::encodeList(list); }
    static Decoded<std::vector<T>> decode(const JSON& json) {
        return detail::decodeList<std::vector<T>>(
            json, [](auto& list, T value) { list.push_back(std::move(value)); });
    }
};

template <OrderedSet Set>
struct JSONCoder<Set> {
    static JSON encode(const Set& set) { return detail::encodeList(set); }
    static Decoded<Set> decode(const JSON& json) {
        return detail::decodeList<Set>(
            json, [](auto& set, typename Set::value_type value) { set.insert(std::move(value)); });
    }
};

} // namespace tidyro
