#include <algorithm>
#include <cstddef>

#include "StorageEngine/AITools/AIToolLayout.h"

namespace tidyro {

namespace {

/// One step of a pattern: a byte, any byte or a class of bytes.
struct Step {
    std::string_view text; ///< "?", "[...]" or one byte
    [[nodiscard]] bool matches(char byte) const {
        if (text == "?") return true;
        if (text.size() == 1) return text[0] == byte;
        std::string_view inside = text.substr(1, text.size() - 2);
        const bool isNegated = inside.starts_with('!');
        if (isNegated) inside.remove_prefix(1);
        bool isInClass = false;
        for (std::size_t i = 0; i < inside.size(); ++i) {
            if (i + 2 < inside.size() && inside[i + 1] == '-') {
                isInClass |= inside[i] <= byte && byte <= inside[i + 2];
                i += 2;
            } else {
                isInClass |= inside[i] == byte;
            }
        }
        return isInClass != isNegated;
    }
};

Step firstStep(std::string_view pattern) {
    if (pattern[0] != '[') return {pattern.substr(0, 1)};
    // A "]" that comes first is a member; a "[" that nothing closes stands for itself.
    const std::size_t close = pattern.find(']', pattern.starts_with("[!") ? 3 : 2);
    return {pattern.substr(0, close == pattern.npos ? 1 : close + 1)};
}

} // namespace

bool NamePattern::matches(std::string_view pattern, std::string_view name) {
    // Only the last "*" may have to take more: what an earlier one could take, the last can too.
    std::string_view afterStar;
    std::string_view nameAtStar;
    bool hasStar = false;
    while (true) {
        if (!pattern.empty() && pattern[0] == '*') {
            pattern.remove_prefix(1);
            afterStar = pattern;
            nameAtStar = name;
            hasStar = true;
            continue;
        }
        if (!pattern.empty() && !name.empty()) {
            if (const Step step = firstStep(pattern); step.matches(name[0])) {
                pattern.remove_prefix(step.text.size());
                name.remove_prefix(1);
                continue;
            }
        } else if (pattern.empty() && name.empty()) {
            return true;
        }
        if (!hasStar || nameAtStar.empty()) return false;
        nameAtStar.remove_prefix(1);
        name = nameAtStar;
        pattern = afterStar;
    }
}

bool NamePattern::matchesAny(std::span<const std::string> patterns, std::string_view name) {
    return std::ranges::any_of(patterns,
                               [&](const std::string& pattern) { return matches(pattern, name); });
}

bool NamePattern::matches(std::span<const std::string> pattern,
                          std::span<const std::string> components) {
    for (std::size_t i = 0; i < pattern.size(); ++i) {
        if (pattern[i] == "**") return components.size() > i;
        if (i >= components.size() || !matches(pattern[i], components[i])) return false;
    }
    return components.size() == pattern.size();
}

} // namespace tidyro
