#include "Platform/Processes/RunningProcesses.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <utility>

#include <libproc.h>
#include <sys/proc_info.h>
#include <sys/stat.h>
#include <sys/sysctl.h>
#include <unistd.h>

#include "Platform/MacOS/Processes/ProcessTable.h"

namespace tidyro::platform {

namespace {

/// Paths come in fixed rooms and end with a zero.
template <std::size_t Size>
std::string textOf(const char (&room)[Size]) {
    return {room, ::strnlen(room, Size)};
}

std::string workingFolderOf(int pid) {
    proc_vnodepathinfo folders{};
    const int got = ::proc_pidinfo(pid, PROC_PIDVNODEPATHINFO, 0, &folders, sizeof(folders));
    if (got < static_cast<int>(sizeof(folders))) return {};
    return textOf(folders.pvi_cdir.vip_path);
}

/// ESRCH when the process has ended.
std::expected<void, SystemError> readOpenFiles(int pid, RunningProcess& process) {
    std::vector<proc_fdinfo> descriptors(256);
    for (;;) {
        const int room = static_cast<int>(descriptors.size() * sizeof(proc_fdinfo));
        errno = 0;
        const int got = ::proc_pidinfo(pid, PROC_PIDLISTFDS, 0, descriptors.data(), room);
        if (got < 0 || (got == 0 && errno != 0)) return std::unexpected(SystemError{errno});
        if (got < room) {
            descriptors.resize(static_cast<std::size_t>(got) / sizeof(proc_fdinfo));
            break;
        }
        descriptors.resize(descriptors.size() * 2);
    }
    for (const proc_fdinfo& descriptor : descriptors) {
        if (descriptor.proc_fdtype != PROX_FDTYPE_VNODE) continue;
        vnode_fdinfowithpath file{};
        const int got =
            ::proc_pidfdinfo(pid, descriptor.proc_fd, PROC_PIDFDVNODEPATHINFO, &file, sizeof(file));
        if (got < static_cast<int>(sizeof(file))) continue; // closed meanwhile
        if (!S_ISREG(file.pvip.vip_vi.vi_stat.vst_mode)) continue;
        process.files.push_back(textOf(file.pvip.vip_path));
    }
    return {};
}

std::expected<void, SystemError> readMappedFiles(int pid, RunningProcess& process) {
    std::uint64_t address = 0;
    for (;;) {
        proc_regionwithpathinfo region{};
        errno = 0;
        const int got =
            ::proc_pidinfo(pid, PROC_PIDREGIONPATHINFO, address, &region, sizeof(region));
        if (got < static_cast<int>(sizeof(region))) {
            // There is no region at or behind the address: the end.
            if (errno == 0 || errno == EINVAL) return {};
            return std::unexpected(SystemError{errno});
        }
        if (region.prp_vip.vip_path[0] == '/') {
            std::string path = textOf(region.prp_vip.vip_path);
            if (process.files.empty() || process.files.back() != path) {
                process.files.push_back(std::move(path));
            }
        }
        const std::uint64_t next = region.prp_prinfo.pri_address + region.prp_prinfo.pri_size;
        if (next <= address) return {};
        address = next;
    }
}

/// The texts as the kernel keeps them: the number of arguments, the path of the program, zeros, the
/// arguments and the environment, each with a zero byte behind it. Nothing when they may not be
/// read.
void readTexts(int pid, ProcessStart& start) {
    std::array<int, 3> name{CTL_KERN, KERN_PROCARGS2, pid};
    std::size_t size = 1'048'576; // the most that a process can be started with
    std::string bytes(size, '\0');
    if (::sysctl(name.data(), name.size(), bytes.data(), &size, nullptr, 0) != 0) return;
    bytes.resize(size);
    int count = 0;
    if (bytes.size() < sizeof(count)) return;
    std::memcpy(&count, bytes.data(), sizeof(count));
    std::size_t at = bytes.find('\0', sizeof(count));
    at = at == std::string::npos ? at : bytes.find_first_not_of('\0', at);
    while (at != std::string::npos && at < bytes.size()) {
        const std::size_t end = std::min(bytes.find('\0', at), bytes.size());
        auto& texts = count > 0 ? start.arguments : start.environment;
        // Other facts of the system stand behind the environment.
        if (count <= 0 && end == at) return;
        texts.push_back(bytes.substr(at, end - at));
        if (count > 0) --count;
        at = end + 1;
    }
}

} // namespace

std::int64_t currentProcessID() { return ::getpid(); }

std::expected<std::vector<ProcessStart>, SystemError> LiveRunningProcesses::starts() const {
    const auto pids = processIDs();
    if (!pids) return std::unexpected(pids.error());
    std::vector<ProcessStart> starts;
    for (const int pid : *pids) {
        ProcessStart start{.pid = pid, .arguments = {}, .environment = {}, .workingFolder = {}};
        readTexts(pid, start);
        proc_vnodepathinfo folders{};
        const int got = ::proc_pidinfo(pid, PROC_PIDVNODEPATHINFO, 0, &folders, sizeof(folders));
        if (got == static_cast<int>(sizeof(folders))) {
            start.workingFolder = textOf(folders.pvi_cdir.vip_path);
        }
        const bool isEmpty = start.arguments.empty() && start.environment.empty();
        if (!isEmpty || !start.workingFolder.empty()) starts.push_back(std::move(start));
    }
    return starts;
}

std::expected<ProcessActivity, SystemError> LiveRunningProcesses::activity() const {
    const auto pids = processIDs();
    if (!pids) return std::unexpected(pids.error());
    ProcessActivity activity;
    for (const int pid : *pids) {
        RunningProcess process{.pid = pid,
                               .executable = executableOf(pid),
                               .workingFolder = workingFolderOf(pid),
                               .files = {}};
        auto read = readOpenFiles(pid, process);
        if (read) read = readMappedFiles(pid, process);
        if (!read && read.error().code != ESRCH) {
            // A system that hides even its asker's own files tells nothing.
            const bool isForbidden = read.error().code == EPERM || read.error().code == EACCES;
            if (!isForbidden || pid == ::getpid()) return std::unexpected(read.error());
            ++activity.unreadable;
        }
        std::ranges::sort(process.files);
        const auto repeated = std::ranges::unique(process.files);
        process.files.erase(repeated.begin(), repeated.end());
        if (process.executable.empty() && process.files.empty()) continue;
        activity.processes.push_back(std::move(process));
    }
    return activity;
}

} // namespace tidyro::platform
