#include "Platform/Processes/BundleIdentifier.h"

#include <cstddef>
#include <cstdint>

#include "Platform/Files/DurableFile.h"

namespace tidyro::platform {

namespace {

constexpr std::string_view wantedKey = "CFBundleIdentifier";

/// The binary form: "bplist00", objects, a table of where each object begins, and 32 bytes that
/// tell the table's place and the widths of its numbers. Numbers have their highest byte first.
/// Only the keys of the outermost dictionary and the wanted value are read, and nothing is followed
/// twice: damaged bytes are refused and never lead in a circle.
class BinaryList {
  public:
    explicit BinaryList(std::string_view bytes) : bytes_(bytes) {}

    [[nodiscard]] std::optional<std::string> textOf(std::string_view key) const {
        constexpr std::size_t trailerSize = 32;
        if (bytes_.size() < 8 + trailerSize) return std::nullopt;
        const std::size_t trailer = bytes_.size() - trailerSize;
        const Layout layout{.offsetWidth = byte(trailer + 6),
                            .referenceWidth = byte(trailer + 7),
                            .objects = number(trailer + 8, 8).value_or(0),
                            .table = number(trailer + 24, 8).value_or(0)};
        const auto top = offsetOf(layout, number(trailer + 16, 8).value_or(0));
        if (!top || byte(*top) >> 4 != dictionary) return std::nullopt;
        const auto content = contentOf(*top);
        const std::uint64_t width = layout.referenceWidth;
        if (!content || width == 0 || content->count > bytes_.size()) return std::nullopt;
        for (std::uint64_t i = 0; i < content->count; ++i) {
            if (text(layout, content->begin + i * width) != key) continue;
            const auto found = text(layout, content->begin + (content->count + i) * width);
            if (!found) return std::nullopt;
            return std::string(*found);
        }
        return std::nullopt;
    }

  private:
    static constexpr unsigned plainText = 5;
    static constexpr unsigned dictionary = 13;

    struct Layout {
        std::uint64_t offsetWidth;
        std::uint64_t referenceWidth;
        std::uint64_t objects;
        std::uint64_t table;
    };
    struct Content {
        std::uint64_t begin;
        std::uint64_t count;
    };

    [[nodiscard]] unsigned byte(std::uint64_t at) const {
        return static_cast<unsigned char>(bytes_[at]);
    }
    [[nodiscard]] std::optional<std::uint64_t> number(std::uint64_t at, std::uint64_t width) const {
        if (width == 0 || width > 8 || at > bytes_.size() || width > bytes_.size() - at) {
            return std::nullopt;
        }
        std::uint64_t value = 0;
        for (std::uint64_t i = 0; i < width; ++i) value = value << 8 | byte(at + i);
        return value;
    }
    /// Where an object begins, by its number.
    [[nodiscard]] std::optional<std::uint64_t> offsetOf(const Layout& layout,
                                                        std::uint64_t object) const {
        if (object >= layout.objects || object > bytes_.size() || layout.table > bytes_.size()) {
            return std::nullopt;
        }
        const auto offset = number(layout.table + object * layout.offsetWidth, layout.offsetWidth);
        return offset && *offset < bytes_.size() ? offset : std::nullopt;
    }
    /// Behind the first byte, whose lower half is the count, or 15 for one in a number of its own.
    [[nodiscard]] std::optional<Content> contentOf(std::uint64_t at) const {
        const std::uint64_t count = byte(at) & 15U;
        if (count < 15) return Content{.begin = at + 1, .count = count};
        if (at + 1 >= bytes_.size() || byte(at + 1) >> 4 != 1) return std::nullopt;
        const std::uint64_t width = 1ULL << (byte(at + 1) & 15U);
        const auto longer = number(at + 2, width);
        if (!longer) return std::nullopt;
        return Content{.begin = at + 2 + width, .count = *longer};
    }
    /// The plain text that a reference at `at` leads to.
    [[nodiscard]] std::optional<std::string_view> text(const Layout& layout,
                                                       std::uint64_t at) const {
        const auto object = number(at, layout.referenceWidth);
        const auto offset = object ? offsetOf(layout, *object) : std::nullopt;
        if (!offset || byte(*offset) >> 4 != plainText) return std::nullopt;
        const auto content = contentOf(*offset);
        if (!content || content->begin > bytes_.size() ||
            content->count > bytes_.size() - content->begin) {
            return std::nullopt;
        }
        return bytes_.substr(content->begin, content->count);
    }

    std::string_view bytes_;
};

/// "<key>CFBundleIdentifier</key> <string>com.example.Editor</string>". An identifier has no
/// character that XML would have to escape.
std::optional<std::string> identifierInXML(std::string_view text) {
    constexpr std::string_view key = "<key>CFBundleIdentifier</key>";
    constexpr std::string_view open = "<string>";
    const std::size_t at = text.find(key);
    if (at == std::string_view::npos) return std::nullopt;
    text.remove_prefix(at + key.size());
    const std::size_t begin = text.find_first_not_of(" \t\r\n");
    if (begin == std::string_view::npos || !text.substr(begin).starts_with(open)) {
        return std::nullopt;
    }
    text.remove_prefix(begin + open.size());
    const std::size_t end = text.find("</string>");
    if (end == std::string_view::npos) return std::nullopt;
    return std::string(text.substr(0, end));
}

} // namespace

std::optional<std::string> bundleIdentifierIn(std::string_view propertyList) {
    auto identifier = propertyList.starts_with("bplist00")
                          ? BinaryList(propertyList).textOf(wantedKey)
                          : identifierInXML(propertyList);
    if (identifier && identifier->empty()) return std::nullopt;
    return identifier;
}

std::optional<std::string> bundleIdentifierOf(const std::string& package) {
    constexpr std::size_t maxByteCount = 4'000'000;
    const auto list = readWholeFile(package + "/Contents/Info.plist", maxByteCount);
    return list ? bundleIdentifierIn(*list) : std::nullopt;
}

} // namespace tidyro::platform
