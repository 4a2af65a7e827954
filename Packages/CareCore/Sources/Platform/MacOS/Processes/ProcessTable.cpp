#include "Platform/MacOS/Processes/ProcessTable.h"

#include <algorithm>
#include <array>
#include <cerrno>

#include <libproc.h>
#include <unistd.h>

namespace tidyro::platform {

std::expected<std::vector<int>, SystemError> processNumbers() {
    // A list that came back full may have been cut off.
    for (std::size_t room = 2'048;; room *= 2) {
        std::vector<int> numbers(room);
        const int got =
            ::proc_listallpids(numbers.data(), static_cast<int>(room * sizeof(numbers[0])));
        if (got <= 0) return std::unexpected(SystemError{errno != 0 ? errno : EIO});
        if (static_cast<std::size_t>(got) >= room) continue;
        numbers.resize(static_cast<std::size_t>(got));
        if (std::ranges::find(numbers, ::getpid()) == numbers.end()) {
            return std::unexpected(SystemError{ESRCH});
        }
        return numbers;
    }
}

std::string executableOf(int process) {
    std::array<char, PROC_PIDPATHINFO_MAXSIZE> path{};
    const int length = ::proc_pidpath(process, path.data(), path.size());
    return length > 0 ? std::string(path.data(), static_cast<std::size_t>(length)) : std::string();
}

} // namespace tidyro::platform
