#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>

namespace tidyro {

/// A regular expression that a person typed. Matching takes time in proportion to the text and
/// bounded memory, so no expression can bring a search to a halt. Any thread may match.
///
/// Bytes of a text that are not UTF-8 count as U+FFFD.
class FindRegex {
  public:
    struct Options {
        bool isCaseSensitive;
    };
    /// Null for a text that is no expression, is longer than 4,096 bytes, or needs too much memory.
    [[nodiscard]] static std::shared_ptr<const FindRegex> compiled(std::string_view expression,
                                                                   Options options);
    FindRegex();
    ~FindRegex();
    FindRegex(const FindRegex&) = delete;
    FindRegex& operator=(const FindRegex&) = delete;

    /// Whether it matches somewhere in `text`.
    [[nodiscard]] bool isIn(std::string_view text) const;

    static constexpr std::size_t maxLiterals = 10;
    /// Texts in ASCII and small letters. Every matching name holds some of them; `mayMatch` says
    /// which. At most `maxLiterals`; none when the expression asks for no text.
    [[nodiscard]] std::span<const std::string> literals() const;
    /// Whether the expression may match in a text that holds exactly these of the literals, upper
    /// and lower case being the same. `held` has a bit for each, the lowest for the first.
    [[nodiscard]] bool mayMatch(std::uint32_t held) const;

  private:
    friend class FindRegexRun;
    struct Program;
    std::unique_ptr<Program> program_;
};

/// Looks for one expression in very many short texts. Starting the automaton costs more than
/// reading a name, so it runs over many names in one go, line by line, as long as few of them
/// match. One thread uses a run, and the expression has to outlive it.
class FindRegexRun {
  public:
    explicit FindRegexRun(const FindRegex& expression);
    ~FindRegexRun();
    FindRegexRun(const FindRegexRun&) = delete;
    FindRegexRun& operator=(const FindRegexRun&) = delete;

    static constexpr std::size_t maxTexts = 64;
    /// Whether the expression matches in each of 1 to `maxTexts` texts: a bit for each, the lowest
    /// for the first. The texts have to lie in one array of bytes, in their order.
    [[nodiscard]] std::uint64_t matching(std::span<const std::string_view> texts);

  private:
    struct Lines;
    [[nodiscard]] std::uint64_t oneByOne(std::span<const std::string_view> texts) const;

    const FindRegex& expression_;
    std::unique_ptr<Lines> lines_; ///< null when lines would change what the expression means
    std::uint64_t seen_ = 0;
    std::uint64_t matched_ = 0;
};

} // namespace tidyro
