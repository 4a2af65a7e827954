#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace tidyro {

/// Finds a text in very many bytes. The two bytes of the needle that are rarest in names are
/// compared at many places at once, and the rest of the needle only where both stand.
///
///     const NeedleFinder finder("readme");
///     for (std::size_t at = 0; at < bytes.size();) {
///         for (const auto place : std::span(places).first(finder.findSome(bytes, at, places))) ...
///     }
///
/// The processor decides which form of it runs; all forms give the same answers. Any thread may use
/// a finder.
class NeedleFinder {
  public:
    /// The needle must not be empty.
    explicit NeedleFinder(std::string needle);

    /// The first place of the needle at or behind `from`; the length of the text when there is
    /// none.
    [[nodiscard]] std::size_t find(std::string_view text, std::size_t from) const;
    /// Writes the next places of the needle at or behind `from`, in order, and returns how many
    /// there are. `places` has room for at least 64. `from` moves to where the next call goes on,
    /// and is the length of the text after the last place. The text is shorter than 4 GiB.
    [[nodiscard]] std::size_t findSome(std::string_view text, std::size_t& from,
                                       std::span<std::uint32_t> places) const {
        return form_(*this, text, from, places);
    }
    [[nodiscard]] const std::string& needle() const { return needle_; }

    /// 64 names that stand one behind the other in a text; `starts` has one more offset.
    struct Names {
        std::string_view text;
        const std::uint32_t* starts;
        static constexpr std::size_t count = 64;
    };
    /// Names, a bit for each.
    struct InNames {
        std::uint64_t holding = 0;
        /// Those of them that may begin with it; a dot at the beginning of a name is not counted.
        std::uint64_t beginning = 0;
        bool operator==(const InNames&) const = default;
    };
    /// Which of the asked names hold the needle. Names are short: one comparison of 32 bytes tells
    /// of most, and no place of a needle that lies over two names has to be sorted out.
    [[nodiscard]] InNames inNames(std::uint64_t asked, const Names& names) const {
        return nameForm_(*this, asked, names);
    }
    /// The same by means that every processor has.
    [[nodiscard]] static InNames inNamesPlainly(const NeedleFinder& self, std::uint64_t asked,
                                                const Names& names);

    /// The same by means that every processor has.
    [[nodiscard]] std::size_t findSomePlainly(std::string_view text, std::size_t& from,
                                              std::span<std::uint32_t> places) const;

  private:
    using Form = std::size_t (*)(const NeedleFinder&, std::string_view, std::size_t&,
                                 std::span<std::uint32_t>);

    using NameForm = InNames (*)(const NeedleFinder&, std::uint64_t, const Names&);

    [[nodiscard]] bool isAt(const char* place) const;
    [[nodiscard]] NameForm bestNameForm() const;
    [[nodiscard]] bool isInLongName(const char* name, std::size_t places) const;
    template <bool isShort>
    [[nodiscard]] static InNames wideNameForm(const NeedleFinder& self, std::uint64_t asked,
                                              const Names& names);
    [[nodiscard]] static Form bestForm();
    [[nodiscard]] static std::size_t plainForm(const NeedleFinder& self, std::string_view text,
                                               std::size_t& from, std::span<std::uint32_t> places);
    [[nodiscard]] static std::size_t wideForm(const NeedleFinder& self, std::string_view text,
                                              std::size_t& from, std::span<std::uint32_t> places);

    std::string needle_;
    std::size_t first_ = 0;  ///< the place of its rarest byte
    std::size_t second_ = 0; ///< of the rarest other one; the same for a single byte
    std::uint64_t head_ = 0; ///< its first bytes, at most eight
    std::uint64_t headMask_ = 0;
    Form form_;
    NameForm nameForm_;
};

} // namespace tidyro
