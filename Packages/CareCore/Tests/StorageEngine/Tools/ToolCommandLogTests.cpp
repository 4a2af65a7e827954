#include "StorageEngine/Tools/ToolCommandLog.h"

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <iterator>

#include <gtest/gtest.h>

#include "Platform/Machine/RandomUUID.h"
#include "Support/OtherCircumstances.h"
#include "Support/TemporaryFolder.h"

namespace tidyro {
namespace {

using testing::TemporaryFolder;
using Record = ToolCommandLog::Record;

Record command(double startedAt) {
    return {.id = platform::randomUUID(),
            .command = "uv cache prune, \"quoted\"",
            .executablePath = "/usr/bin/uv",
            .startedAt = Timestamp::sinceReference(startedAt)};
}

TEST(ToolCommandLog, TellsWhatWasInterrupted) {
    const TemporaryFolder place;
    const ToolCommandLog log{FileURL::folder(place / "a/b/ToolCommands")};
    EXPECT_TRUE(log.interrupted().empty());
    Record first = command(800'000'000.125);
    const Record second = command(700'000'000.5);
    ASSERT_TRUE(log.write(first));
    ASSERT_TRUE(log.write(second));
    place.file("a/b/ToolCommands/notes.json", "{}");
    place.file("a/b/ToolCommands/" + platform::randomUUID().text() + ".json.partial", "{");
    place.folder("a/b/ToolCommands/" + platform::randomUUID().text() + ".json");
    EXPECT_EQ(log.interrupted(), (std::vector{second, first}));
    first.finishedAt = Timestamp::sinceReference(800'000'010);
    first.result = "completed";
    ASSERT_TRUE(log.write(first));
    EXPECT_EQ(log.interrupted(), std::vector{second});
}

TEST(ToolCommandLog, LeavesOutWhatStillRuns) {
    const TemporaryFolder place;
    const ToolCommandLog log{FileURL::folder(place / "log")};
    const Record finished = command(1);
    const Record interrupted = command(2);
    {
        auto first = log.begin(finished);
        ASSERT_TRUE(first);
        const auto second = log.begin(interrupted);
        ASSERT_TRUE(second);
        EXPECT_FALSE(log.begin(interrupted)) << "it runs already";
        EXPECT_TRUE(log.interrupted().empty());
        // Another process sees the same.
        EXPECT_EQ(testing::inChild([&] { return std::to_string(log.interrupted().size()); }), "0");
        ASSERT_TRUE(first->finish("completed"));
        EXPECT_TRUE(log.interrupted().empty());
    }
    ASSERT_EQ(log.interrupted(), std::vector{interrupted});
    EXPECT_EQ(ToolCommandLog::interruptionText(interrupted, Calendar::utc()),
              "The command \"uv cache prune, \"quoted\"\" that Tidyro started on 2001-01-01 at "
              "00:00 was interrupted, so it may have done only a part of its work.");
    Record told = interrupted;
    told.finishedAt = Timestamp::now();
    ASSERT_TRUE(log.write(told));
    EXPECT_TRUE(log.interrupted().empty());
    // Nothing but the two records is left.
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(log.directory.path()),
                            std::filesystem::directory_iterator()),
              2);
    // A lock without a record tells nothing.
    place.file("log/" + platform::randomUUID().text() + ".lock");
    EXPECT_TRUE(log.interrupted().empty());
}

TEST(ToolCommandLog, IsReadHoweverItWasCut) {
    const TemporaryFolder place;
    const ToolCommandLog log{FileURL::folder(place.path())};
    Record finished = command(800'000'000);
    finished.finishedAt = Timestamp::sinceReference(800'000'010);
    finished.result = "completed";
    ASSERT_TRUE(log.write(finished));
    const std::string name = finished.id.text() + ".json";
    std::ifstream file(place / name);
    const std::string whole{std::istreambuf_iterator<char>(file), {}};
    for (std::size_t length = 0; length < whole.size(); ++length) {
        place.file(name, whole.substr(0, length));
        place.times(name, 1'700'000'000, 1'700'000'000);
        const auto told = log.interrupted();
        ASSERT_EQ(told.size(), 1U) << length;
        EXPECT_EQ(told[0].id, finished.id);
        // What is whole in the file is told, and never a part of it.
        const bool hasCommand = length > whole.find(",\"executablePath\"") + 1;
        const bool hasTime = length > whole.find(",\"finishedAt\"") + 1;
        EXPECT_EQ(told[0].command, hasCommand ? finished.command : "") << length;
        EXPECT_EQ(told[0].startedAt,
                  hasTime ? finished.startedAt : Timestamp::since1970(1'700'000'000.0))
            << length;
    }
    place.file(name, whole);
    EXPECT_TRUE(log.interrupted().empty());
    // Bytes of a disk that was damaged in another way.
    place.file(name, std::string(whole.size(), '\0'));
    EXPECT_EQ(log.interrupted().size(), 1U);
}

/// Lets the k-th change of the disk fail, and all that follow.
class FailingDisk final : public platform::ChangeGate {
  public:
    explicit FailingDisk(int passed) : left_(passed) {}
    Done perform(platform::DiskChange, const std::function<Done()>& change) override {
        if (left_-- > 0) return change();
        return std::unexpected(SystemError{ENOSPC});
    }

  private:
    int left_;
};

TEST(ToolCommandLog, SaysWhenItCannotBeWritten) {
    const TemporaryFolder place;
    for (int passed = 0;; ++passed) {
        const ToolCommandLog log{FileURL::folder(place / ("log" + std::to_string(passed)))};
        FailingDisk disk(passed);
        Record record = command(800'000'000);
        if (log.write(record, disk)) {
            EXPECT_GE(passed, 5); // a folder, a file, a write, a flush, a rename at least
            // A failure of the second write leaves the first record whole.
            record.finishedAt = record.startedAt;
            FailingDisk full(0);
            EXPECT_FALSE(log.write(record, full));
            EXPECT_EQ(log.interrupted().size(), 1U);
            break;
        }
        // At most what is told is one command too many: its own.
        EXPECT_LE(log.interrupted().size(), 1U);
        const ToolCommandLog other{FileURL::folder(place / ("other" + std::to_string(passed)))};
        FailingDisk again(passed);
        EXPECT_FALSE(other.begin(command(2), again));
        EXPECT_LE(other.interrupted().size(), 1U);
    }
    place.file("file", "no folder");
    EXPECT_FALSE(ToolCommandLog{FileURL::folder(place / "file/log")}.write(command(1)));
    EXPECT_FALSE(ToolCommandLog{FileURL::folder(place / "file")}.write(command(1)));
    place.folder("closed");
    place.permissions("closed", 0555);
    place.permissions("", 0755);
    EXPECT_EQ(testing::asOrdinaryUser([&] {
                  const ToolCommandLog log{FileURL::folder(place / "closed/log")};
                  return std::string(log.write(command(1)) ? "written" : "refused");
              }),
              "refused");
    place.permissions("closed", 0755);
}

} // namespace
} // namespace tidyro
