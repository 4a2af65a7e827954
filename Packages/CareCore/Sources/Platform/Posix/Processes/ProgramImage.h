#pragma once

#include <array>
#include <string>
#include <vector>

/// What a program's file and what it is given look like to the system.
namespace tidyro::platform {

/// Whether a file with these first bytes is run by the processor itself.
[[nodiscard]] bool beginsNativeProgram(const std::array<unsigned char, 4>& start);

/// By which path another process of this user starts an open file of this one.
[[nodiscard]] std::string pathOfOpenProgram(int fd, const std::string& path);

/// Texts as the calls that start programs take them. The texts must outlive the list.
[[nodiscard]] inline std::vector<char*> nullTerminated(const std::vector<std::string>& texts) {
    std::vector<char*> pointers;
    pointers.reserve(texts.size() + 1);
    // The calls never write to the texts, although they do not say so.
    for (const std::string& text : texts) pointers.push_back(const_cast<char*>(text.c_str()));
    pointers.push_back(nullptr);
    return pointers;
}

} // namespace tidyro::platform
