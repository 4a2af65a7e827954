// Makes the manifest of a tool's home and prints how long that takes with its digest:
//
//     ToolManifest [COUNT [FOLDER [BYTES]]]
//
// First from a report that was made by hand, without a look at any file. Then, when a folder is
// given, a home with so many files of about so many bytes (4,000 by default) is made in it, and the
// manifest with the look at their contents is compared with bare reading of the same bytes. The
// folder is left as it was.

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

#include "Platform/Files/FileMetadata.h"
#include "StorageEngine/AITools/Cleanup/AIToolCleanupManifest.h"

namespace {

namespace fs = std::filesystem;
using namespace tidyro;

constexpr std::size_t filesOfFolder = 100;
constexpr int runs = 5;

double secondsOf(const std::function<void()>& work) {
    const auto begun = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - begun).count();
}

double medianOf(const std::function<void()>& work) {
    std::vector<double> took;
    took.reserve(runs);
    for (int run = 0; run < runs; ++run) took.push_back(secondsOf(work));
    std::ranges::sort(took);
    return took[took.size() / 2];
}

std::string nameOf(std::size_t number) {
    return ".tmp/git-aBcDeF/objects/" + std::to_string(number / filesOfFolder) + "/file-" +
           std::to_string(number);
}

AIToolAuditReport reportOf(const FileURL& home, std::size_t count, Timestamp now) {
    AIToolAuditReport report{.home = {.tool = AIToolID::codex,
                                      .url = home,
                                      .deviceID = 1,
                                      .inode = 2,
                                      .source = AIToolHomeSource::conventional,
                                      .userHome = home.parent()},
                             .layoutVersion = AIToolLayouts::layout(AIToolID::codex).layoutVersion,
                             .minimumAge = 86'400,
                             .startedAt = now,
                             .completedAt = now};
    AIToolRuleFinding finding{.ruleID = "codex-tmp-git-scratch",
                              .title = "Codex scratch git folders",
                              .group = AIToolArtifactGroup::disposableCache,
                              .category = CleanupCategory::temporaryArtifact,
                              .consequence = "Nothing is lost.",
                              .locationRootURL = home,
                              .candidateRootURL = home.appendingFolder(".tmp"),
                              .volumeIdentifier = SharedText("a volume")};
    finding.artifacts.reserve(count);
    for (std::size_t i = 0; i < count; ++i) {
        finding.artifacts.push_back({.relativePath = nameOf(i),
                                     .byteCount = 4'000 + i,
                                     .allocatedByteCount = 8'192,
                                     .deviceID = 2'049,
                                     .inode = 1'000'000 + i,
                                     .modificationDate = now.adding(-1e6 - static_cast<double>(i)),
                                     .creationDate = now.adding(-2e6 - 0.25)});
    }
    std::ranges::sort(finding.artifacts, {}, &AIToolArtifact::relativePath);
    report.ruleFindings.push_back(std::move(finding));
    return report;
}

void make(const AIToolAuditReport& report, const AIToolLastLook::Veto& veto, std::size_t expected) {
    AIToolCleanupLeftOut leftOut;
    const auto manifest =
        AIToolCleanupManifest::make(report, {.disposableRuleIDs = {"codex-tmp-git-scratch"}},
                                    report.startedAt, {.veto = veto, .leftOut = &leftOut});
    if (!manifest || manifest->itemCount() != expected || manifest->digest().size() != 64) {
        for (const std::string& line : leftOut.lines()) std::printf("%s\n", line.c_str());
        std::exit(1); // NOLINT(concurrency-mt-unsafe): there is one thread
    }
}

/// The first bytes of each file, as the look takes them.
std::size_t readBare(const AIToolAuditReport& report) {
    static std::array<char, AIToolVeto::bytesLookedAt> buffer;
    std::size_t total = 0;
    std::string open;
    int folder = -1;
    for (const AIToolArtifact& item : report.ruleFindings.front().artifacts) {
        const std::size_t slash = item.relativePath.rfind('/');
        if (item.relativePath.compare(0, slash, open) != 0) {
            open = item.relativePath.substr(0, slash);
            if (folder >= 0) ::close(folder);
            folder = ::open((report.home.url.path() + "/" + open).c_str(), O_RDONLY | O_DIRECTORY);
        }
        const int file = ::openat(folder, item.relativePath.c_str() + slash + 1, O_RDONLY);
        const ssize_t got = ::read(file, buffer.data(), buffer.size());
        total += static_cast<std::size_t>(std::max<ssize_t>(got, 0));
        ::close(file);
    }
    if (folder >= 0) ::close(folder);
    return total;
}

} // namespace

int main(int count, char** arguments) {
    const std::size_t wanted = count > 1 ? std::strtoul(arguments[1], nullptr, 10) : 100'000;
    const Timestamp now = Timestamp::now();
    const AIToolAuditReport report = reportOf(FileURL::folder("/home/ada/.codex"), wanted, now);
    std::printf("%zu entries with their digest: %.3f s\n", wanted,
                medianOf([&] { make(report, nullptr, wanted); }));
    if (count < 3) return 0;

    const std::size_t bytesOfFile = count > 3 ? std::strtoul(arguments[3], nullptr, 10) : 4'000;
    const fs::path top = fs::path(arguments[2]) / "tool-manifest-home";
    const AIToolAuditReport real = reportOf(FileURL::folder(top.string()), wanted, now);
    for (std::size_t i = 0; i < wanted; ++i) {
        const fs::path file = top / nameOf(i);
        if (i % filesOfFolder == 0) fs::create_directories(file.parent_path());
        std::string text;
        while (text.size() < bytesOfFile / 2 + i % bytesOfFile)
            text += "line of a script that is long enough\n";
        std::ofstream(file) << text;
    }
    const std::size_t bytes = readBare(real);
    std::vector<double> ratios;
    ratios.reserve(runs);
    double look = 0;
    double bare = 0;
    for (int run = 0; run < runs; ++run) {
        bare = secondsOf([&] { readBare(real); });
        look = secondsOf([&] { make(real, AIToolVeto::reason, wanted); });
        ratios.push_back(look / bare);
    }
    std::ranges::sort(ratios);
    std::printf("with the look at %zu bytes: %.2f times reading them (last: %.3f s to %.3f s)\n",
                bytes, ratios[ratios.size() / 2], look, bare);
    fs::remove_all(top);
    return 0;
}
