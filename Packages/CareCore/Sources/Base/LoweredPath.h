#pragma once

#include <array>
#include <cstddef>
#include <string>
#include <string_view>

#include "Base/UnicodeText.h"

namespace tidyro {

/// A path in lower case, for the many comparisons without regard to case that one verdict makes.
/// The text lies in the object itself, so a plain ASCII path of usual length allocates nothing.
class LoweredPath {
  public:
    explicit LoweredPath(std::string_view path) {
        if (path.size() > inline_.size() || !lowerInline(path)) {
            longer_ = lowercased(path);
            text_ = longer_;
        }
    }
    LoweredPath(const LoweredPath&) = delete;
    LoweredPath& operator=(const LoweredPath&) = delete;

    [[nodiscard]] std::string_view text() const { return text_; }

    /// Whether some component of the path is accepted.
    template <class Accept>
    [[nodiscard]] bool hasComponent(Accept accept) const {
        std::string_view rest = text_;
        while (!rest.empty()) {
            const std::size_t end = rest.find('/');
            if (accept(rest.substr(0, end))) return true;
            if (end == std::string_view::npos) return false;
            rest.remove_prefix(end + 1);
        }
        return false;
    }
    /// The name of the item itself.
    [[nodiscard]] std::string_view lastComponent() const {
        return text_.substr(text_.rfind('/') + 1);
    }

  private:
    /// False when the path is not plain ASCII: then it has to be lowered by Unicode's rules.
    bool lowerInline(std::string_view path) {
        for (std::size_t i = 0; i < path.size(); ++i) {
            const char byte = path[i];
            if ((byte & 0x80) != 0) return false;
            inline_[i] = lowerASCII(byte);
        }
        text_ = {inline_.data(), path.size()};
        return true;
    }

    std::array<char, 512> inline_;
    std::string longer_;
    std::string_view text_;
};

} // namespace tidyro
