#include "Platform/Linux/Files/KernelText.h"

#include <algorithm>
#include <cerrno>

#include <fcntl.h>
#include <unistd.h>

namespace tidyro::platform {

int readKernelFile(int folder, const char* name, std::string& text) {
    text.clear();
    const int file = ::openat(folder, name, O_RDONLY | O_CLOEXEC | O_NOCTTY);
    if (file < 0) return errno;
    constexpr std::size_t step = 32'768;
    std::size_t filled = 0;
    int error = 0;
    for (;;) {
        if (text.size() - filled < step) text.resize(std::max(text.capacity(), filled + step));
        const ssize_t got = ::read(file, text.data() + filled, text.size() - filled);
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) error = errno;
        if (got <= 0) break;
        filled += static_cast<std::size_t>(got);
    }
    ::close(file);
    text.resize(error == 0 ? filled : 0);
    return error;
}

int readKernelFile(const char* path, std::string& text) {
    return readKernelFile(AT_FDCWD, path, text);
}

std::string kernelLine(const std::string& path) {
    std::string text;
    if (readKernelFile(path.c_str(), text) != 0) return {};
    while (text.ends_with('\n')) text.pop_back();
    return text;
}

int readKernelLink(int folder, const char* name, std::string& target) {
    target.resize(std::max<std::size_t>(target.capacity(), 256));
    for (;;) {
        const ssize_t got = ::readlinkat(folder, name, target.data(), target.size());
        if (got < 0) {
            target.clear();
            return errno;
        }
        if (static_cast<std::size_t>(got) < target.size()) {
            target.resize(static_cast<std::size_t>(got));
            return 0;
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
