#pragma once

#include <expected>
#include <string>
#include <string_view>
#include <utility>

#include <nlohmann/json.hpp>

#include "Base/JSONForward.h" // IWYU pragma: export

/// JSON documents, and what can be wrong with one. `Base/JSONCoding.h` says how values are coded.
namespace tidyro {

[[nodiscard]] inline std::unexpected<DecodingError>
decodingFailure(DecodingError::Kind kind, std::string reason, std::string path = {}) {
    return std::unexpected(DecodingError{kind, std::move(path), std::move(reason)});
}

/// Reads a whole document; hostile bytes give `malformed`. However deep a document is, neither
/// reading nor destroying it overflows the stack. No number in it is infinite.
[[nodiscard]] Decoded<JSON> parseJSON(std::string_view text);
/// One document in UTF-8, its keys in order; `indent` below 0 writes it in one line.
[[nodiscard]] std::string jsonText(const JSON& document, int indent = -1);

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

} // namespace tidyro
