#pragma once

#include <string>
#include <string_view>

#include "StorageEngine/AITools/AIToolLayout.h"

namespace tidyro::testing {

/// A name that a pattern takes: "x" for "*", "a" for "?", and of a class a member that is no ".".
inline std::string sampleName(std::string_view pattern) {
    std::string name;
    for (std::size_t i = 0; i < pattern.size(); ++i) {
        if (pattern[i] == '[') {
            const std::size_t close = pattern.find(']', i);
            name += pattern[i + 1] == '!' ? 'x' : pattern[i + 1];
            i = close;
        } else {
            name += pattern[i] == '*' ? 'x' : pattern[i] == '?' ? 'a' : pattern[i];
        }
    }
    return name;
}

/// A path below its root that a rule recognises.
inline std::string samplePath(const AIToolRecognizer& rule) {
    std::string path;
    for (const std::string& component : rule.pattern) {
        if (!path.empty()) path += '/';
        path += component == "**" ? "deep/x" : sampleName(component);
    }
    return rule.extensions.empty() ? path : path.append(".").append(*rule.extensions.begin());
}

} // namespace tidyro::testing
