#include "Base/JSONCoding.h"

#include <utility>

#include "Base/UnicodeText.h"

namespace tidyro {

DecodingError DecodingError::under(std::string_view key) && {
    return {kind, std::string(key) + (path.empty() ? "" : ".") + path, std::move(reason)};
}

std::string DecodingError::description() const {
    return path.empty() ? reason : reason + " (at " + path + ")";
}

Decoded<JSON> parseJSON(std::string_view text) {
    // A zero byte has no place in JSON, and the parser would take it for the end of the text.
    const bool hasEnd = text.find('\0') == std::string_view::npos;
    JSON document =
        JSON::parse(hasEnd ? text : std::string_view{}, nullptr, /*allow_exceptions=*/false);
    if (document.is_discarded()) {
        return decodingFailure(DecodingError::Kind::malformed, "The data is not valid JSON.");
    }
    return document;
}

std::string jsonText(const JSON& document, int indent) {
    return document.dump(indent, ' ', /*ensure_ascii=*/false, JSON::error_handler_t::replace);
}

Decoded<bool> JSONCoder<bool>::decode(const JSON& json) {
    if (json.is_boolean()) return json.get<bool>();
    return decodingFailure(DecodingError::Kind::typeMismatch, "Expected true or false.");
}

Decoded<double> JSONCoder<double>::decode(const JSON& json) {
    if (json.is_number()) return json.get<double>();
    return decodingFailure(DecodingError::Kind::typeMismatch, "Expected a number.");
}

JSON JSONCoder<std::string>::encode(const std::string& value) { return repairedUTF8(value); }

Decoded<std::string> JSONCoder<std::string>::decode(const JSON& json) {
    if (json.is_string()) return json.get<std::string>();
    return decodingFailure(DecodingError::Kind::typeMismatch, "Expected text.");
}

JSON JSONCoder<SharedText>::encode(const SharedText& value) { return repairedUTF8(value); }

Decoded<SharedText> JSONCoder<SharedText>::decode(const JSON& json) {
    auto text = fromJSON<std::string>(json);
    if (!text) return std::unexpected(std::move(text.error()));
    return SharedText::made(*std::move(text));
}

Decoded<Timestamp> JSONCoder<Timestamp>::decode(const JSON& json) {
    const auto seconds = fromJSON<double>(json);
    if (!seconds) return std::unexpected(seconds.error());
    return Timestamp::sinceReference(*seconds);
}

Decoded<FileURL> JSONCoder<FileURL>::decode(const JSON& json) {
    const auto text = fromJSON<std::string>(json);
    if (!text) return std::unexpected(text.error());
    if (auto url = FileURL::fromText(*text)) return *std::move(url);
    return decodingFailure(DecodingError::Kind::dataCorrupted, "Invalid file URL.");
}

Decoded<UUID> JSONCoder<UUID>::decode(const JSON& json) {
    const auto text = fromJSON<std::string>(json);
    if (!text) return std::unexpected(text.error());
    if (const auto uuid = UUID::fromText(*text)) return *uuid;
    return decodingFailure(DecodingError::Kind::dataCorrupted, "Invalid UUID.");
}

} // namespace tidyro
