#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

namespace tidyro {

/// A text that never changes and that many records share. Copying it allocates nothing. It refers
/// to one of the program's own texts, or owns a text together with all its copies.
class SharedText {
  public:
    SharedText() = default;
    /// One of the program's own texts: a literal, which lives as long as the program.
    template <std::size_t Count>
    // NOLINTNEXTLINE: a literal is a text
    SharedText(const char (&literal)[Count]) : text_(literal, Count - 1) {}
    /// A text that was put together.
    [[nodiscard]] static SharedText made(std::string text) {
        SharedText shared;
        shared.owner_ = std::make_shared<const std::string>(std::move(text));
        shared.text_ = *shared.owner_;
        return shared;
    }
    /// A text that lives as long as the program.
    [[nodiscard]] static SharedText lasting(std::string_view text) {
        SharedText shared;
        shared.text_ = text;
        return shared;
    }

    [[nodiscard]] std::string_view text() const noexcept { return text_; }
    operator std::string_view() const noexcept { return text_; } // NOLINT: it is a text

    friend bool operator==(const SharedText& a, const SharedText& b) noexcept {
        return a.text_ == b.text_;
    }

  private:
    std::string_view text_;
    std::shared_ptr<const std::string> owner_;
};

} // namespace tidyro
