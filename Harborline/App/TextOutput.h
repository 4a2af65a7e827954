#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <utility>

#include <fmt/format.h>

#include "Base/LocaleText.h"
#include "Base/UnicodeText.h"

namespace tidyro {

/// Where a run writes its lines, and how they are written for people. What it is made of outlives
/// it. Used by one thread.
class TextOutput {
  public:
    /// `write` receives each line, line break included. Names are escaped for a terminal, which
    /// they must not drive.
    TextOutput(const std::function<void(std::string_view)>& write, bool escapesNames)
        : write_(write), escapesNames_(escapesNames) {}

    template <class... Values>
    void line(fmt::format_string<Values...> format, Values&&... values) const {
        std::string text = fmt::format(format, std::forward<Values>(values)...);
        text += '\n';
        write_(text);
    }
    [[nodiscard]] std::string shown(std::string text) const {
        return escapesNames_ ? terminalSafe(text) : std::move(text);
    }
    /// With so many digits behind the separator of the person's locale.
    [[nodiscard]] static std::string decimal(double value, int digits) {
        return LocaleText::current().decimal(value, digits);
    }

  private:
    const std::function<void(std::string_view)>& write_;
    bool escapesNames_;
};

} // namespace tidyro
