#pragma once

#include <expected>
#include <string>
#include <string_view>

#include <nlohmann/json_fwd.hpp>

/// The names of JSON documents and of their coding, for headers that only declare how a type of
/// theirs is coded. Whoever codes a value includes `Base/JSONCoding.h`, which takes a compiler far
/// longer to read.
namespace tidyro {

using JSON = nlohmann::ordered_json;

struct DecodingError {
    enum class Kind { malformed, missingKey, typeMismatch, dataCorrupted };
    Kind kind;
    std::string path; ///< the keys that lead there, joined with "."
    std::string reason;

    /// The same error, seen from one key further up.
    [[nodiscard]] DecodingError under(std::string_view key) &&;
    [[nodiscard]] std::string description() const;
    bool operator==(const DecodingError&) const = default;
};

template <class T>
using Decoded = std::expected<T, DecodingError>;

/// The coding of one type: `encode(value)` gives JSON, `decode(json)` a value or an error.
template <class T>
struct JSONCoder;

} // namespace tidyro
