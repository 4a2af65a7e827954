#pragma once

#include <cstdint>
#include <string>

namespace tidyro {

/// Numbers as the person's locale writes them: counts with its grouping, decimals with its
/// separator. The "C" and "POSIX" locales, and any that is not installed, read as English.
///
///     LocaleText::current().count(12345)        // "12,345"
///     LocaleText::current().decimal(0.118, 2)   // "0.12"
class LocaleText {
  public:
    struct Rules {
        std::string decimalPoint = ".";
        std::string groupSeparator = ",";
        /// Group sizes from the right, the last repeating, as std::numpunct gives them. Empty: no
        /// grouping.
        std::string grouping = "\3";
    };

    explicit LocaleText(Rules rules) : rules_(std::move(rules)) {}

    /// The rules of a named locale ("de_DE.UTF-8").
    [[nodiscard]] static LocaleText named(const std::string& name);
    /// The locale of the process's environment (LC_ALL, LC_NUMERIC, LANG, in this order). It is
    /// looked up once, by whichever thread asks first.
    [[nodiscard]] static const LocaleText& current();

    [[nodiscard]] std::string count(std::uint64_t value) const;
    /// Rounded to `fractionDigits` digits, which are always written. The value is finite.
    [[nodiscard]] std::string decimal(double value, int fractionDigits) const;

    [[nodiscard]] const Rules& rules() const noexcept { return rules_; }

  private:
    [[nodiscard]] std::string grouped(std::string digits) const;

    Rules rules_;
};

} // namespace tidyro
