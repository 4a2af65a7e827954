#pragma once

#include <concepts>
#include <cstdint>
#include <expected>
#include <limits>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json.hpp>

#include "Base/FileURL.h"
#include "Base/RawValues.h"
#include "Base/Record.h"
#include "Base/Timestamp.h"
#include "Base/UUID.h"

/// Records to JSON and back, driven by their field lists.
///
/// How values are coded: a date as seconds since 2001-01-01 00:00 UTC, a URL as its text, a UUID
/// as its text, an enumeration as its raw text, a set as an ascending list. An absent optional is
/// left out; a missing required key fails the whole record. Text that is not UTF-8 is repaired
/// when it is written (places travel as URLs, whose escapes keep every byte).
namespace tidyro {

using JSON = nlohmann::ordered_json;

struct DecodingError {
    enum class Kind { malformed, missingKey, typeMismatch, dataCorrupted };
    Kind kind;
    std::string path; ///< the keys that lead there, joined with "."
    std::string reason;

    [[nodiscard]] std::string description() const;
    bool operator==(const DecodingError&) const = default;
};

template <class T>
using Decoded = std::expected<T, DecodingError>;

[[nodiscard]] inline std::unexpected<DecodingError>
decodingFailure(DecodingError::Kind kind, std::string reason, std::string path = {}) {
    return std::unexpected(DecodingError{kind, std::move(path), std::move(reason)});
}

/// Reads a whole document; hostile bytes give `malformed`.
[[nodiscard]] Decoded<JSON> parseJSON(std::string_view text);
/// One document in UTF-8, its keys in order; `indent` below 0 writes it in one line.
[[nodiscard]] std::string jsonText(const JSON& document, int indent = -1);

/// The coding of one type; records and the types above have one.
template <class T>
struct JSONCoder;

template <class T>
[[nodiscard]] JSON toJSON(const T& value) {
    return JSONCoder<T>::encode(value);
}

template <class T>
[[nodiscard]] Decoded<T> fromJSON(const JSON& json) {
    return JSONCoder<T>::decode(json);
}

template <class T>
[[nodiscard]] Decoded<T> fromJSONText(std::string_view text) {
    const auto document = parseJSON(text);
    if (!document) return std::unexpected(document.error());
    return fromJSON<T>(*document);
}

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

namespace detail {

template <class List, class Add>
Decoded<List> decodeList(const JSON& json, Add add) {
    if (!json.is_array()) {
        return decodingFailure(DecodingError::Kind::typeMismatch, "Expected a list.");
    }
    List list;
    for (const JSON& element : json) {
        auto value = fromJSON<typename List::value_type>(element);
        if (!value) return std::unexpected(value.error());
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

template <class T>
struct JSONCoder<std::set<T>> {
    static JSON encode(const std::set<T>& list) { return detail::encodeList(list); }
    static Decoded<std::set<T>> decode(const JSON& json) {
        return detail::decodeList<std::set<T>>(
            json, [](auto& list, T value) { list.insert(std::move(value)); });
    }
};

// Records ------------------------------------------------------------------------------------

namespace detail {

template <class Record, class Value>
void encodeField(JSON& object, const Record& record, const Field<Record, Value>& field) {
    object[std::string(field.key)] = toJSON(record.*(field.member));
}

template <class Record, class Value>
void encodeField(JSON& object, const Record& record,
                 const Field<Record, std::optional<Value>>& field) {
    if (const auto& value = record.*(field.member)) {
        object[std::string(field.key)] = toJSON(*value);
    }
}

/// `Value` is the type that is read: for an optional member, what it may hold.
template <class Value, class Record, class Member>
bool decodeValue(const JSON& json, Record& record, const Field<Record, Member>& field,
                 std::optional<DecodingError>& error) {
    auto value = fromJSON<Value>(json);
    if (value) {
        record.*(field.member) = std::move(*value);
        return true;
    }
    error = std::move(value.error());
    error->path = std::string(field.key) + (error->path.empty() ? "" : ".") + error->path;
    return false;
}

template <class Record, class Value>
bool decodeField(const JSON& object, Record& record, const Field<Record, Value>& field,
                 std::optional<DecodingError>& error) {
    const auto found = object.find(field.key);
    if (found != object.end()) return decodeValue<Value>(*found, record, field, error);
    error = DecodingError{DecodingError::Kind::missingKey, std::string(field.key),
                          "No value associated with the key."};
    return false;
}

template <class Record, class Value>
bool decodeField(const JSON& object, Record& record,
                 const Field<Record, std::optional<Value>>& field,
                 std::optional<DecodingError>& error) {
    const auto found = object.find(field.key);
    return found == object.end() || found->is_null() ||
           decodeValue<Value>(*found, record, field, error);
}

} // namespace detail

template <RecordType Record>
struct JSONCoder<Record> {
    static JSON encode(const Record& record) {
        JSON object = JSON::object();
        std::apply([&](const auto&... field) { (detail::encodeField(object, record, field), ...); },
                   Record::fields());
        return object;
    }
    static Decoded<Record> decode(const JSON& json) {
        if (!json.is_object()) {
            return decodingFailure(DecodingError::Kind::typeMismatch, "Expected an object.");
        }
        Record record{};
        std::optional<DecodingError> error;
        std::apply(
            [&](const auto&... field) {
                static_cast<void>((detail::decodeField(json, record, field, error) && ...));
            },
            Record::fields());
        if (error) return std::unexpected(std::move(*error));
        return record;
    }
};

} // namespace tidyro
