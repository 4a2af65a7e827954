#pragma once

#include <algorithm>
#include <array>
#include <charconv>
#include <concepts>
#include <cstddef>
#include <functional>
#include <limits>
#include <optional>
#include <string>
#include <string_view>
#include <tuple>
#include <utility>
#include <variant>
#include <vector>

#include "Base/JSONCoding.h"

/// The text of a record without its document.
///
///     jsonTextOf(receipt)      // the very text of jsonText(toJSON(receipt))
///     writeJSONText(intent, [&](std::string_view piece) { file.append(piece); });
///
/// A document takes several times the memory of its text. A plan or a receipt has hundreds of
/// thousands of items, so its text is written value by value, and piece by piece where nobody needs
/// the whole.
namespace tidyro {

/// Appends to a `std::string` or to a `TextInPieces`.
template <class Text, class T>
void appendJSONText(Text& text, const T& value);

/// Text that is handed on in large pieces while it is written.
class TextInPieces {
  public:
    using Take = std::function<void(std::string_view piece)>;
    static constexpr std::size_t pieceBytes = 98'304; ///< about as many in each piece but the last

    explicit TextInPieces(Take take) : take_(std::move(take)) {}

    TextInPieces& append(std::string_view text) {
        held_ += text;
        if (held_.size() >= pieceBytes) handOn();
        return *this;
    }
    TextInPieces& operator+=(std::string_view text) { return append(text); }
    TextInPieces& operator+=(char character) { return append({&character, 1}); }
    /// Hands on what is left. Called once, at the end.
    void end() { handOn(); }

  private:
    void handOn() {
        take_(held_);
        held_.clear();
    }

    Take take_;
    std::string held_;
};

namespace detail {

/// Sets commas between the elements of an object or a list.
template <class Text>
class JSONElements {
  public:
    JSONElements(Text& text, char begin, char end) : text_(text), end_(end) { text_ += begin; }
    ~JSONElements() { text_ += end_; }
    JSONElements(const JSONElements&) = delete;
    JSONElements& operator=(const JSONElements&) = delete;

    template <class T>
    void add(const T& element) {
        separate();
        appendJSONText(text_, element);
    }
    template <class T>
    void add(std::string_view key, const T& value) {
        separate();
        text_.append("\"").append(key).append("\":"); // a name of the program needs no escapes
        appendJSONText(text_, value);
    }
    template <class T>
    void add(std::string_view key, const std::optional<T>& value) {
        if (value) add(key, *value);
    }

  private:
    void separate() {
        if (!isFirst_) text_ += ',';
        isFirst_ = false;
    }

    Text& text_;
    char end_;
    bool isFirst_ = true;
};

/// Whether a text stands in JSON as it is, between quotation marks. Nearly every one does.
inline bool isPlainInJSON(std::string_view text) {
    // No end at the first one that is not: that takes twice as long for those that all are.
    bool isPlain = true;
    for (const char byte : text) {
        isPlain &= byte >= ' ' && byte < '\x7f' && byte != '"' && byte != '\\';
    }
    return isPlain;
}

template <class Text>
void appendQuoted(Text& text, std::string_view plain) {
    text += '"';
    text.append(plain);
    text += '"';
}

template <class Text>
void appendJSONString(Text& text, std::string_view value) {
    if (isPlainInJSON(value)) {
        appendQuoted(text, value);
    } else {
        text += jsonText(JSON(value));
    }
}

template <class T>
constexpr bool isJSONList = OrderedSet<T>;
template <class T>
constexpr bool isJSONList<std::vector<T>> = true;

} // namespace detail

template <class Text, class T>
void appendJSONText(Text& text, const T& value) {
    if constexpr (CaseEnumeration<T>) {
        detail::JSONElements object(text, '{', '}');
        std::visit([&]<class Case>(const Case& values) { object.add(Case::caseName, values); },
                   casesOf(value));
    } else if constexpr (RecordType<T>) {
        detail::JSONElements object(text, '{', '}');
        std::apply(
            [&](const auto&... field) { (object.add(field.key, value.*(field.member)), ...); },
            T::fields());
    } else if constexpr (detail::isJSONList<T>) {
        detail::JSONElements list(text, '[', ']');
        for (const auto& element : value) list.add(element);
    } else if constexpr (std::same_as<T, std::string>) {
        detail::appendJSONString(text, value);
    } else if constexpr (std::same_as<T, SharedText>) {
        detail::appendJSONString(text, value.text());
    } else if constexpr (std::same_as<T, FileURL>) {
        detail::appendQuoted(text, value.text()); // its escapes leave nothing else
    } else if constexpr (TextEnumeration<T>) {
        detail::appendJSONString(text, rawValue(value));
    } else if constexpr (std::same_as<T, bool>) {
        text.append(value ? "true" : "false");
    } else if constexpr (std::integral<T>) {
        std::array<char, std::numeric_limits<T>::digits10 + 2> digits{};
        const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), value);
        text.append(std::string_view(digits.data(), end.ptr));
    } else if (const JSON document = toJSON(value); document.is_string()) {
        detail::appendJSONString(text, document.template get_ref<const std::string&>());
    } else {
        text += jsonText(document);
    }
}

template <class T>
[[nodiscard]] std::string jsonTextOf(const T& value) {
    std::string text;
    appendJSONText(text, value);
    return text;
}

/// Hands the text to `take` piece by piece.
template <class T>
void writeJSONText(const T& value, TextInPieces::Take take) {
    TextInPieces text(std::move(take));
    appendJSONText(text, value);
    text.end();
}

} // namespace tidyro
