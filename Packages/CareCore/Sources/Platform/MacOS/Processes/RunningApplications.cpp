// The list of running applications that the frameworks keep is out of reach of plain C, but it is
// not needed: an application's processes run files inside its package, and the package says who
// it is.
#include "Platform/Processes/RunningApplications.h"

#include <array>
#include <map>
#include <optional>
#include <string_view>
#include <utility>

#include <libproc.h>

#include "Platform/MacOS/Processes/ProcessTable.h"
#include "Platform/Processes/BundleIdentifier.h"

namespace tidyro::platform {

namespace {

/// The packages that hold the executable, the outermost first: a helper has its own inside its
/// application's.
std::vector<std::string> packagesOf(const std::string& executable) {
    std::vector<std::string> packages;
    constexpr std::string_view ending = ".app/Contents/";
    for (std::size_t at = 0; (at = executable.find(ending, at)) != std::string::npos; ++at) {
        packages.push_back(executable.substr(0, at + 4));
    }
    return packages;
}

} // namespace

std::expected<std::vector<RunningApplication>, SystemError>
LiveRunningApplications::running() const {
    const auto pids = processIDs();
    if (!pids) return std::unexpected(pids.error());
    std::map<std::string, std::optional<std::string>> known;
    std::vector<RunningApplication> applications;
    for (const int pid : *pids) {
        RunningApplication application;
        application.executable = executableOf(pid);
        std::array<char, 256> name{};
        if (::proc_name(pid, name.data(), name.size()) > 0) application.name = name.data();
        if (application.executable.empty() && application.name.empty()) continue; // ended
        for (const std::string& package : packagesOf(application.executable)) {
            auto found = known.find(package);
            if (found == known.end())
                found = known.emplace(package, bundleIdentifierOf(package)).first;
            if (!found->second) continue;
            RunningApplication identified = application;
            identified.bundleIdentifier = *found->second;
            applications.push_back(std::move(identified));
        }
        applications.push_back(std::move(application));
    }
    return applications;
}

} // namespace tidyro::platform
