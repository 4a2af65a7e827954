#include "FolderWalk/FolderWalk.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Support/OtherCircumstances.h"
#include "Support/TemporaryFolder.h"

namespace tidyro {
namespace {

using ::testing::ElementsAre;
using testing::TemporaryFolder;
using Number = FolderWalk::Number;

/// The smallest target: the names of all entries, and what became of each folder.
class Names : public FolderWalk::Target {
  public:
    struct Entry {
        std::string name;
        Number parent;
        std::string outcome = {};
    };
    std::vector<Entry> entries{{.name = "", .parent = 0}};
    std::size_t maxEntries = 1'000'000;

    std::unique_ptr<FolderWalk::Reader> makeReader(const std::atomic<bool>& cancelled) override {
        return std::make_unique<Reader>(*this, cancelled);
    }
    Number parent(Number folder) const override { return entries[folder].parent; }
    std::string_view name(Number folder) const override { return entries[folder].name; }
    bool isReportDue() const override { return false; }
    void report(std::unique_lock<std::mutex>&, Number) override {}

    /// "a/b=read a/c", sorted; files have no outcome.
    [[nodiscard]] std::vector<std::string> all() const {
        std::vector<std::string> lines;
        for (Number i = 1; i < entries.size(); ++i) {
            std::string path = entries[i].name;
            for (Number at = entries[i].parent; at != 0; at = entries[at].parent) {
                path = entries[at].name + "/" + path;
            }
            lines.push_back(path + (entries[i].outcome.empty() ? "" : "=" + entries[i].outcome));
        }
        std::ranges::sort(lines);
        return lines;
    }

  private:
    class Reader : public FolderWalk::Reader {
      public:
        Reader(Names& names, const std::atomic<bool>& cancelled)
            : names_(names), lister_({.cancelled = &cancelled}) {}

        void begin(Number) override {}
        SystemError read(const FolderWalk::Visit& visit) override {
            found_.clear();
            descents_.clear();
            lister_.begin(visit.folder);
            while (const platform::FolderEntry* entry = lister_.next()) {
                const PlaceTree::Branch* place =
                    visit.places == nullptr ? nullptr : visit.places->child(entry->name);
                const auto mark = place == nullptr ? PlaceTree::Mark::none : place->mark;
                if (mark == PlaceTree::Mark::skipped) continue;
                if (entry->type == platform::EntryType::folder && visit.mayDescend &&
                    mark == PlaceTree::Mark::none) {
                    descents_.push_back(
                        {.slot = static_cast<Number>(found_.size()), .places = place});
                }
                found_.emplace_back(entry->name);
            }
            return lister_.error();
        }
        std::optional<FolderWalk::Handover>
        finish(Number folder, FolderWalk::Outcome outcome,
               const std::optional<platform::FolderFacts>&) override {
            constexpr std::array words{"read", "closed", "mountPoint", "vanished", "unread"};
            names_.entries[folder].outcome = words[static_cast<std::size_t>(outcome)];
            if (outcome != FolderWalk::Outcome::read) return FolderWalk::Handover{};
            const auto first = static_cast<Number>(names_.entries.size());
            if (first + found_.size() > names_.maxEntries) return std::nullopt;
            for (std::string& name : found_) {
                names_.entries.push_back({.name = std::move(name), .parent = folder});
            }
            return FolderWalk::Handover{.first = first, .descents = descents_};
        }

      private:
        Names& names_;
        platform::FolderLister lister_;
        std::vector<std::string> found_;
        std::vector<FolderWalk::Descent> descents_;
    };
};

FolderWalk::Options optionsFor(const std::string& path) {
    return {.root = *platform::FolderDescriptor::openRoot(path),
            .rootPath = path,
            .threadName = "test",
            .workerCount = 3};
}

TEST(FolderWalk, TellsWhatBecameOfEachFolder) {
    const TemporaryFolder place;
    for (const char* file : {"a/b/c/deep", "a/file", "skipped/x", "listed/x", "closed/x"}) {
        place.file(file);
    }
    place.link("link", "a");
    place.permissions("closed", 0);
    const std::string told = testing::asOrdinaryUser([&] {
        Names names;
        auto options = optionsFor(place.path());
        options.skipping = {place / "skipped", "/elsewhere"};
        options.skippingContentsOf = {place / "listed/"};
        FolderWalk walk(std::move(options), names);
        const bool isRead = walk.run().has_value();
        return fmt::format("{} {}", isRead, fmt::join(names.all(), " "));
    });
    EXPECT_EQ(told, "true a/b/c/deep a/b/c=read a/b=read a/file a=read closed=closed link listed");

    place.permissions("closed", 0700);
    Names names;
    auto options = optionsFor(place.path());
    options.maxDepth = 1;
    FolderWalk shallow(std::move(options), names);
    ASSERT_TRUE(shallow.run());
    EXPECT_THAT(names.all(),
                ElementsAre("a/b", "a/file", "a=read", "closed/x", "closed=read", "link",
                            "listed/x", "listed=read", "skipped/x", "skipped=read"));
}

TEST(FolderWalk, EndsWhenItIsCancelledOrTheTargetIsFull) {
    const TemporaryFolder place;
    for (int i = 0; i < 50; ++i) place.file(fmt::format("{}/file", i));
    Names small;
    small.maxEntries = 60;
    EXPECT_EQ(FolderWalk(optionsFor(place.path()), small).run().error().code, EOVERFLOW);

    Names cancelled;
    FolderWalk walk(optionsFor(place.path()), cancelled);
    walk.cancel();
    EXPECT_EQ(walk.run().error().code, ECANCELED);
}

} // namespace
} // namespace tidyro
