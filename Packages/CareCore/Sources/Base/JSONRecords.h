#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <tuple>
#include <type_traits>
#include <utility>
#include <variant>

#include "Base/Cases.h"
#include "Base/JSON.h"
#include "Base/Record.h"

/// The coding of records and of enumerations with associated values: see Base/JSONCoding.h.
namespace tidyro {

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

/// `Value` is the type of the value in the document: for an optional member, the type inside it.
/// False, with `error` set, when it cannot be decoded.
template <class Value, class Record, class Member>
bool decodeInto(const JSON& json, Record& record, const Field<Record, Member>& field,
                std::optional<DecodingError>& error) {
    auto value = fromJSON<Value>(json);
    if (value) {
        record.*(field.member) = std::move(*value);
        return true;
    }
    error = std::move(value.error()).under(field.key);
    return false;
}

template <class Record, class Value>
bool decodeField(const JSON& object, Record& record, const Field<Record, Value>& field,
                 std::optional<DecodingError>& error) {
    const auto found = object.find(field.key);
    if (found != object.end()) return decodeInto<Value>(*found, record, field, error);
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
           decodeInto<Value>(*found, record, field, error);
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

// Enumerations with associated values ---------------------------------------------------------

namespace detail {

template <class Enumeration, class Case>
Decoded<Enumeration> decodeValuesOfCase(const JSON& values) {
    auto read = fromJSON<Case>(values);
    if (!read) return std::unexpected(std::move(read.error()).under(Case::caseName));
    return Enumeration{std::move(*read)};
}

template <class Enumeration, class... Cases>
Decoded<Enumeration> decodeCase(std::string_view name, const JSON& values,
                                std::type_identity<std::variant<Cases...>>) {
    Decoded<Enumeration> read =
        decodingFailure(DecodingError::Kind::dataCorrupted,
                        "The enumeration has no case \"" + std::string(name) + "\".");
    static_cast<void>(
        ((name == Cases::caseName &&
          (static_cast<void>(read = decodeValuesOfCase<Enumeration, Cases>(values)), true)) ||
         ...));
    return read;
}

} // namespace detail

template <CaseEnumeration Enumeration>
struct JSONCoder<Enumeration> {
    static JSON encode(const Enumeration& enumeration) {
        JSON object = JSON::object();
        std::visit(
            [&]<class Case>(const Case& values) {
                object[std::string(Case::caseName)] = toJSON(values);
            },
            casesOf(enumeration));
        return object;
    }
    static Decoded<Enumeration> decode(const JSON& json) {
        if (!json.is_object()) {
            return decodingFailure(DecodingError::Kind::typeMismatch, "Expected an object.");
        }
        if (json.size() != 1) {
            return decodingFailure(DecodingError::Kind::typeMismatch,
                                   "Invalid number of keys found, expected one.");
        }
        const auto only = json.begin();
        return detail::decodeCase<Enumeration>(only.key(), *only,
                                               std::type_identity<typename Enumeration::Cases>{});
    }
};

} // namespace tidyro
