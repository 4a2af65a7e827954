#pragma once

#include <string>
#include <string_view>

/// The text files and links by which the kernel tells about itself, below /proc and /sys.
namespace tidyro::platform {

/// Reads the whole file into `text`, whose room is used again; 0, or the error number. Their size
/// is not known before they are read.
[[nodiscard]] int readKernelFile(const char* path, std::string& text);
/// The same for a name in an open folder.
[[nodiscard]] int readKernelFile(int folder, const char* name, std::string& text);

/// The file's text without the line break at its end; empty when there is none to read.
[[nodiscard]] std::string kernelLine(const std::string& path);

/// Where a link in an open folder leads, as the kernel writes it, into `target`; 0, or the error.
[[nodiscard]] int readKernelLink(int folder, const char* name, std::string& target);

/// The kernel writes what would break its lines as a backslash and three octal digits.
[[nodiscard]] std::string withoutEscapes(std::string_view text);

} // namespace tidyro::platform
