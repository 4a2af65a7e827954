#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace tidyro {

/// Finds a text in very many bytes, again and again. The two bytes of the needle that are rarest in
/// names are compared for 32 places at once; only where both stand is the rest looked at.
///
///     const NeedleFinder finder("readme");
///     for (auto at = finder.find(bytes, 0); at < bytes.size(); at = finder.find(bytes, at + 1))
///
/// Which form of it runs depends on what the processor has; all give the same answers.
class NeedleFinder {
  public:
    /// The needle is not empty.
    explicit NeedleFinder(std::string needle);

    /// Where the needle stands first at or behind `from`; the length of the text where it does not.
    [[nodiscard]] std::size_t find(std::string_view text, std::size_t from) const {
        return form_(*this, text, from);
    }
    [[nodiscard]] const std::string& needle() const { return needle_; }

    /// One place after another, with what every processor has. For tests as well.
    [[nodiscard]] std::size_t findPlainly(std::string_view text, std::size_t from) const;

  private:
    using Form = std::size_t (*)(const NeedleFinder&, std::string_view, std::size_t);

    [[nodiscard]] bool standsAt(const char* place) const;
    [[nodiscard]] static Form bestForm();
    [[nodiscard]] static std::size_t plainForm(const NeedleFinder& self, std::string_view text,
                                               std::size_t from);
    [[nodiscard]] static std::size_t wideForm(const NeedleFinder& self, std::string_view text,
                                              std::size_t from);

    std::string needle_;
    std::size_t first_ = 0;  ///< the place of its rarest byte
    std::size_t second_ = 0; ///< of the rarest other one; the same for a single byte
    Form form_;
};

} // namespace tidyro
