#pragma once

#include <algorithm>
#include <concepts>
#include <optional>
#include <string>
#include <string_view>
#include <tuple>
#include <variant>
#include <vector>

#include "Base/JSONCoding.h"

/// The text of a record without its document.
///
///     jsonTextOf(receipt)      // the very text of jsonText(toJSON(receipt))
///
/// A document takes several times the memory of its text. A plan or a receipt has hundreds of
/// thousands of items, so its text is written value by value.
namespace tidyro {

template <class T>
void appendJSONText(std::string& text, const T& value);

namespace detail {

/// Sets commas between the elements of an object or a list.
class JSONElements {
  public:
    JSONElements(std::string& text, char begin, char end) : text_(text), end_(end) {
        text_ += begin;
    }
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

    std::string& text_;
    char end_;
    bool isFirst_ = true;
};

/// Whether a text stands in JSON as it is, between quotation marks. Nearly every one does.
inline bool isPlainInJSON(std::string_view text) {
    return std::ranges::all_of(text, [](char byte) {
        return byte >= ' ' && byte < '\x7f' && byte != '"' && byte != '\\';
    });
}

template <class T>
constexpr bool isJSONList = OrderedSet<T>;
template <class T>
constexpr bool isJSONList<std::vector<T>> = true;

} // namespace detail

template <class T>
void appendJSONText(std::string& text, const T& value) {
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
        if (detail::isPlainInJSON(value)) {
            text.append("\"").append(value).append("\"");
        } else {
            text += jsonText(toJSON(value));
        }
    } else {
        text += jsonText(toJSON(value));
    }
}

template <class T>
[[nodiscard]] std::string jsonTextOf(const T& value) {
    std::string text;
    appendJSONText(text, value);
    return text;
}

} // namespace tidyro
