#include "StorageEngine/Cleanup/Planning/CleanupPlanFile.h"

#include <filesystem>
#include <functional>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "Base/JSONCoding.h"
#include "Platform/Files/DurableFile.h"
#include "Platform/Files/FileMetadata.h"
#include "StorageEngine/Cleanup/Planning/SamplePlan.h"
#include "Support/TemporaryFolder.h"

namespace tidyro {
namespace {

using enum CleanupPlanFileError;
using testing::samplePlan;

std::string told(const CleanupPlanFile::Result<CleanupPlanFile>& file) {
    return file ? std::string("read") : std::string(description(file.error()));
}

std::string told(const std::string& text) { return told(CleanupPlanFile::fromText(text)); }

TEST(CleanupPlanFile, ReadsBackWhatItWrote) {
    const testing::TemporaryFolder place;
    const FileURL url = FileURL::file(place / "plan.json");
    for (std::uint64_t seed = 1; seed < 7; ++seed) { // with each case of an authorization
        auto made = samplePlan(seed);
        if (seed == 5) {
            made.plan.entries.clear();
            made.sheet.entries.clear();
            made.sheet.folders.clear();
        }
        const auto digest = CleanupPlanFile::write(url, made.plan, made.sheet);
        ASSERT_TRUE(digest);
        const auto file = CleanupPlanFile::read(url);
        ASSERT_EQ(told(file), "read");
        EXPECT_EQ(file->plan, made.plan);
        EXPECT_EQ(file->sheet, made.sheet);
        EXPECT_EQ(file->digest, *digest);
        EXPECT_EQ(*digest, cleanupDigest(made.plan, made.sheet));
        EXPECT_EQ(digest->size(), 64U);
        EXPECT_EQ(digest->find_first_not_of("0123456789abcdef"), std::string::npos);
        EXPECT_EQ(platform::fileMetadata(url.path())->permissions, 0600U);
    }
    EXPECT_EQ(told(CleanupPlanFile::read(FileURL::file(place / "none"))),
              "This plan could not be read from its file. Nothing was touched.");
    place.hole("large", CleanupPlanFile::maxByteCount + 1);
    EXPECT_EQ(CleanupPlanFile::read(FileURL::file(place / "large")).error(), tooLarge);
    const auto made = samplePlan();
    EXPECT_EQ(
        CleanupPlanFile::write(FileURL::file(place / "no/folder"), made.plan, made.sheet).error(),
        unwritable);
}

TEST(CleanupPlanFile, HasTheDigestOfItsLastPart) {
    const CleanupPlan plan{.id = UUID({1}),
                           .goal = {.byteCount = 5},
                           .entries = {},
                           .createdAt = Timestamp::sinceReference(1),
                           .expiresAt = Timestamp::sinceReference(2.5),
                           .mode = CleanupExecutionMode::permanent};
    // Other programs read it as docs/file-formats.md says.
    EXPECT_EQ(CleanupPlanFile::text(plan, {.planID = plan.id, .entries = {}}),
              "{\"version\":1,\"digest\":"
              "\"3cfb0dc8ae6963569adedb5edda98abd3c272087db1e933fe4833a0d515b272c\",\n"
              "\"plan\":{\"id\":\"01000000-0000-0000-0000-000000000000\",\"goal\":{\"byteCount\":"
              "5},\"entries\":[],\"createdAt\":1.0,\"expiresAt\":2.5,\"mode\":\"permanent\"},\n"
              "\"sheet\":{\"planID\":\"01000000-0000-0000-0000-000000000000\",\"entries\":[],"
              "\"folders\":[]}}\n");
}

/// Calls `with` for each change that can be made to one value, list or key of a document.
void eachChange(JSON& at, const std::function<void()>& with) {
    const JSON before = at;
    const auto put = [&](JSON to) {
        at = std::move(to);
        with();
        at = before;
    };
    if (at.is_string()) {
        put(before.get<std::string>() + "x");
        put("planLevel"); // another case, and another one
        put("itemLevel");
        put("recoverable");
        put("simulation");
        put("file:///elsewhere");
        put("6F9619FF-8B86-D011-B42D-00CF4FC964FF");
    } else if (at.is_boolean()) {
        put(!before.get<bool>());
    } else if (at.is_number_unsigned()) {
        put(before.get<std::uint64_t>() ^ 1U);
    } else if (at.is_number()) {
        put(before.get<double>() + 1e-3);
    } else if (at.is_array()) {
        for (std::size_t i = 0; i < before.size(); ++i) {
            JSON fewer = before;
            fewer.erase(i);
            put(fewer);
            JSON more = before;
            more.push_back(before[i]);
            put(more);
        }
        if (before.size() > 1) {
            JSON exchanged = before;
            std::swap(exchanged[0], exchanged[1]);
            put(exchanged);
        }
        for (std::size_t i = 0; i < before.size(); ++i) eachChange(at[i], with);
    } else {
        for (const auto& [key, value] : before.items()) {
            JSON without = before;
            without.erase(key);
            put(without);
        }
        for (const auto& [key, value] : before.items()) eachChange(at[key], with);
    }
}

TEST(CleanupPlanFile, NoticesEachChangeOfAPlanOrItsSheet) {
    const auto made = samplePlan();
    const std::string digest = cleanupDigest(made.plan, made.sheet);
    std::size_t taken = 0;
    JSON both = {{"plan", toJSON(made.plan)}, {"sheet", toJSON(made.sheet)}};
    eachChange(both, [&] {
        if (!both.contains("plan") || !both.contains("sheet")) return;
        const auto plan = fromJSON<CleanupPlan>(both["plan"]);
        const auto sheet = fromJSON<CleanupPlanSheet>(both["sheet"]);
        if (!plan || !sheet) return; // such a file is none
        if (*plan == made.plan && *sheet == made.sheet) return;
        ++taken;
        EXPECT_NE(cleanupDigest(*plan, *sheet), digest) << jsonText(both);
        // Written down with the digest that was given before.
        std::string text = CleanupPlanFile::text(*plan, *sheet);
        text.replace(text.find(cleanupDigest(*plan, *sheet)), digest.size(), digest);
        const auto read = CleanupPlanFile::fromText(text);
        ASSERT_FALSE(read) << jsonText(both);
        EXPECT_TRUE(read.error() == changed || read.error() == sheetOfAnotherPlan);
    });
    EXPECT_GT(taken, 150U) << "the changes are no changes";
}

TEST(CleanupPlanFile, ReadsNothingButTheVeryText) {
    const auto made = samplePlan();
    const std::string text = CleanupPlanFile::text(made.plan, made.sheet);
    ASSERT_EQ(told(text), "read");
    for (std::size_t i = 0; i < text.size(); ++i) {
        std::string flipped = text;
        flipped[i] = static_cast<char>(flipped[i] ^ 1);
        ASSERT_FALSE(CleanupPlanFile::fromText(flipped)) << i;
    }
    for (std::size_t size = 0; size < text.size(); size += 7) {
        EXPECT_FALSE(CleanupPlanFile::fromText(text.substr(0, size))) << size;
    }
    const auto with = [&](std::string_view old, std::string_view replacement) {
        std::string other = text;
        const std::size_t at = other.find(old);
        if (at == other.npos) return std::string("nothing to replace");
        return told(other.replace(at, old.size(), replacement));
    };
    const std::string damagedText(description(damaged));
    EXPECT_EQ(told(text + "\n"), damagedText);
    EXPECT_EQ(told(jsonText(*parseJSON(text))), damagedText) << "written by somebody else";
    EXPECT_EQ(with("\"plan\":{", "\"plan\":{\"more\":1,"), damagedText);
    EXPECT_EQ(with("\"plan\":{", "\"plan\":{\"mode\":\"permanent\","), damagedText) << "twice";
    EXPECT_EQ(with("{\"version\":1,", "{"), damagedText);
    EXPECT_EQ(with("\"version\":1", "\"version\":1.0"), damagedText);
    EXPECT_EQ(with("\"version\":1", "\"version\":2"), std::string(description(otherVersion)));

    const auto wrong = [&](auto change) {
        auto other = made;
        change(other);
        EXPECT_EQ(
            CleanupPlanFile::write(FileURL::file("/nowhere"), other.plan, other.sheet).error(),
            sheetOfAnotherPlan);
        return CleanupPlanFile::fromText(CleanupPlanFile::text(other.plan, other.sheet)).error();
    };
    EXPECT_EQ(wrong([](auto& both) { both.sheet.planID = UUID(); }), sheetOfAnotherPlan);
    EXPECT_EQ(wrong([](auto& both) { both.sheet.entries.pop_back(); }), sheetOfAnotherPlan);
    EXPECT_EQ(wrong([](auto& both) { both.plan.entries.pop_back(); }), sheetOfAnotherPlan);
    EXPECT_EQ(wrong([](auto& both) { std::swap(both.sheet.entries[0], both.sheet.entries[1]); }),
              sheetOfAnotherPlan);
    EXPECT_EQ(wrong([](auto& both) {
                  both.plan.entries[1].candidateID = both.plan.entries[0].candidateID;
                  both.sheet.entries[1].candidateID = both.plan.entries[0].candidateID;
              }),
              sheetOfAnotherPlan)
        << "an item twice";
}

} // namespace
} // namespace tidyro
