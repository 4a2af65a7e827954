#include "Platform/MacOS/Processes/ProcessTable.h"

#include <algorithm>
#include <array>
#include <cerrno>

#include <libproc.h>
#include <unistd.h>

namespace tidyro::platform {

std::expected<std::vector<int>, SystemError> processIDs() {
    // A list that came back full may have been cut off.
    for (std::size_t room = 2'048;; room *= 2) {
        std::vector<int> pids(room);
        const int got = ::proc_listallpids(pids.data(), static_cast<int>(room * sizeof(pids[0])));
        if (got <= 0) return std::unexpected(SystemError{errno != 0 ? errno : EIO});
        if (static_cast<std::size_t>(got) >= room) continue;
        pids.resize(static_cast<std::size_t>(got));
        if (std::ranges::find(pids, ::getpid()) == pids.end()) {
            return std::unexpected(SystemError{ESRCH});
        }
        return pids;
    }
}

std::string executableOf(int pid) {
    std::array<char, PROC_PIDPATHINFO_MAXSIZE> path{};
    const int length = ::proc_pidpath(pid, path.data(), path.size());
    return length > 0 ? std::string(path.data(), static_cast<std::size_t>(length)) : std::string();
}

} // namespace tidyro::platform
