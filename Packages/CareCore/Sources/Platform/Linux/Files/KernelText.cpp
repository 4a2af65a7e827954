#include "Platform/Linux/Files/KernelText.h"

#include <algorithm>
#include <cerrno>

#include <fcntl.h>
#include <unistd.h>

namespace tidyro::platform {

std::expected<void, SystemError> readKernelFile(int folder, const char* name, std::string& text) {
    text.clear();
    const int fd = ::openat(folder, name, O_RDONLY | O_CLOEXEC | O_NOCTTY);
    if (fd < 0) return std::unexpected(SystemError{errno});
    constexpr std::size_t step = 32'768;
    std::size_t filled = 0;
    std::expected<void, SystemError> outcome;
    for (;;) {
        if (text.size() - filled < step) text.resize(std::max(text.capacity(), filled + step));
        const ssize_t got = ::read(fd, text.data() + filled, text.size() - filled);
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) outcome = std::unexpected(SystemError{errno});
        if (got <= 0) break;
        filled += static_cast<std::size_t>(got);
    }
    ::close(fd);
    text.resize(outcome ? filled : 0);
    return outcome;
}

std::expected<void, SystemError> readKernelFile(const char* path, std::string& text) {
    return readKernelFile(AT_FDCWD, path, text);
}

std::string kernelLine(const std::string& path) {
    std::string text;
    if (!readKernelFile(path.c_str(), text)) return {};
    while (text.ends_with('\n')) text.pop_back();
    return text;
}

std::expected<void, SystemError> readKernelLink(int folder, const char* name, std::string& target) {
    target.resize(std::max<std::size_t>(target.capacity(), 256));
    for (;;) {
        const ssize_t got = ::readlinkat(folder, name, target.data(), target.size());
        if (got < 0) {
            target.clear();
            return std::unexpected(SystemError{errno});
        }
        if (static_cast<std::size_t>(got) < target.size()) {
            target.resize(static_cast<std::size_t>(got));
            return {};
        }
        target.resize(target.size() * 2);
    }
}

std::string withoutEscapes(std::string_view text) {
    std::string plain;
    plain.reserve(text.size());
    const auto isOctal = [&](std::size_t i) { return text[i] >= '0' && text[i] <= '7'; };
    for (std::size_t at = 0; at < text.size(); ++at) {
        if (text[at] == '\\' && at + 3 < text.size() && isOctal(at + 1) && isOctal(at + 2) &&
            isOctal(at + 3)) {
            const auto digit = [&](std::size_t i) { return text[at + i] - '0'; };
            plain += static_cast<char>(digit(1) << 6 | digit(2) << 3 | digit(3));
            at += 3;
        } else {
            plain += text[at];
        }
    }
    return plain;
}

} // namespace tidyro::platform
