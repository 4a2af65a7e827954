#include "Platform/Terminal/StandardStreams.h"

#include <cerrno>
#include <csignal>

#include <poll.h>
#include <unistd.h>

namespace tidyro::platform {

bool isTerminal(Stream stream) { return ::isatty(static_cast<int>(stream)) == 1; }

std::expected<void, SystemError> writeAll(Stream stream, std::string_view bytes) {
    const int fd = static_cast<int>(stream);
    while (!bytes.empty()) {
        const ssize_t written = ::write(fd, bytes.data(), bytes.size());
        if (written >= 0) {
            bytes.remove_prefix(static_cast<std::size_t>(written));
        } else if (errno == EAGAIN) {
            // The other end set the pipe to non-blocking; wait until it takes more.
            pollfd ready{.fd = fd, .events = POLLOUT, .revents = 0};
            ::poll(&ready, 1, -1);
        } else if (errno != EINTR) {
            return std::unexpected(SystemError{errno});
        }
    }
    return {};
}

void reportWriteFailuresAsErrors() {
    ::signal(SIGPIPE, SIG_IGN);
    ::signal(SIGXFSZ, SIG_IGN);
}

} // namespace tidyro::platform
