#pragma once

#include <expected>
#include <string>
#include <string_view>

#include "Base/SystemError.h"

/// The text files and links by which the kernel tells about itself, below /proc and /sys.
///
/// The texts are read into strings of the caller, whose room is used again: a walk over all
/// processes reads thousands of them. After an error the string is empty.
namespace tidyro::platform {

/// The whole file. Its size is not known before it is read.
[[nodiscard]] std::expected<void, SystemError> readKernelFile(const char* path, std::string& text);
/// The same for a name in an open folder.
[[nodiscard]] std::expected<void, SystemError> readKernelFile(int folder, const char* name,
                                                              std::string& text);

/// The file's text without the line break at its end; empty when there is none to read.
[[nodiscard]] std::string kernelLine(const std::string& path);

/// Where a link in an open folder leads, as the kernel writes it.
[[nodiscard]] std::expected<void, SystemError> readKernelLink(int folder, const char* name,
                                                              std::string& target);

/// A text of the kernel as it was meant: what would break its lines, the kernel writes as a
/// backslash and three octal digits.
[[nodiscard]] std::string withoutEscapes(std::string_view text);

} // namespace tidyro::platform
