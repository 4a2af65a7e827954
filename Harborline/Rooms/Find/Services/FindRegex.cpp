#include "Rooms/Find/Services/FindRegex.h"

#include <algorithm>
#include <cstdint>
#include <string>

#include <re2/re2.h>

#include "Base/UnicodeText.h"

namespace tidyro {

namespace {

/// For the compiled expression and its automata. What people type needs a hundredth of it.
constexpr std::int64_t memoryLimit = std::int64_t{4} << 20U;

RE2::Options options(bool matchesCase) {
    RE2::Options chosen;
    chosen.set_max_mem(memoryLimit);
    chosen.set_log_errors(false);
    chosen.set_case_sensitive(matchesCase);
    return chosen;
}

bool isASCII(std::string_view text) {
    return std::ranges::none_of(text, [](char byte) { return (byte & 0x80) != 0; });
}

} // namespace

struct FindRegex::Program {
    RE2 expression;
};

FindRegex::FindRegex() = default;
FindRegex::~FindRegex() = default;

std::shared_ptr<const FindRegex> FindRegex::compiled(std::string_view expression,
                                                     bool matchesCase) {
    auto made = std::make_shared<FindRegex>();
    made->program_.reset(new Program{RE2(expression, options(matchesCase))});
    if (!made->program_->expression.ok()) return nullptr;
    return made;
}

bool FindRegex::isIn(std::string_view text) const {
    const auto finds = [this](std::string_view in) {
        return program_->expression.Match(in, 0, in.size(), RE2::UNANCHORED, nullptr, 0);
    };
    return isASCII(text) ? finds(text) : finds(repairedUTF8(text));
}

} // namespace tidyro
