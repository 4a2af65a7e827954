// The small values that records are made of.
#include <cstddef>
#include <cstdint>
#include <limits>
#include <random>
#include <string_view>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "Base/Calendar.h"
#include "Base/GrowingArray.h"
#include "Base/Saturating.h"
#include "Base/Timestamp.h"
#include "Base/UUID.h"

namespace tidyro {
namespace {

constexpr std::uint64_t largest = std::numeric_limits<std::uint64_t>::max();

TEST(Saturating, StaysAtTheEndsOfItsRange) {
    EXPECT_EQ(saturatingAdd(largest - 1, 1), largest);
    EXPECT_EQ(saturatingAdd(largest, 1), largest);
    EXPECT_EQ(saturatingMultiply(1ULL << 32, (1ULL << 32) - 1), largest - ((1ULL << 32) - 1));
    EXPECT_EQ(saturatingMultiply(1ULL << 32, 1ULL << 32), largest);
    EXPECT_EQ(saturatingMultiply(largest, 0), 0U);
    EXPECT_EQ(saturatingSubtract<std::uint32_t>(5, 3), 2U);
    EXPECT_EQ(saturatingSubtract<std::uint32_t>(3, 5), 0U);
}

TEST(UUID, ReadsAndWritesItsText) {
    constexpr std::string_view text = "00112233-4455-6677-8899-AABBCCDDEEFF";
    const auto id = UUID::fromText("00112233-4455-6677-8899-aabbccDDEEFF");
    ASSERT_TRUE(id);
    EXPECT_EQ(id->text(), text);
    EXPECT_EQ(id->bytes()[15], 0xFF);
    EXPECT_EQ(UUID().text(), "00000000-0000-0000-0000-000000000000");
    for (const std::string_view damaged :
         {"", "00112233445566778899AABBCCDDEEFF", "00112233-4455-6677-8899-AABBCCDDEEF",
          "00112233-4455-6677-8899-AABBCCDDEEFF0", "0011223-34455-6677-8899-AABBCCDDEEFF",
          "{0112233-4455-6677-8899-AABBCCDDEEF}", "0x112233-4455-6677-8899-AABBCCDDEEFF",
          "-1112233-4455-6677-8899-AABBCCDDEEFF", "00112233-4455-6677-8899-AABBCCDDEEFG",
          " 0112233-4455-6677-8899-AABBCCDDEEFF", "00112233-4455-6677-8899-"}) {
        EXPECT_FALSE(UUID::fromText(damaged)) << damaged;
    }
}

TEST(Timestamp, CountsFromTwoEpochs) {
    EXPECT_EQ(Timestamp::since1970(0).secondsSinceReference(), -978'307'200.0);
    EXPECT_EQ(Timestamp(), Timestamp::since1970(978'307'200));
    EXPECT_EQ(Timestamp::since1970(978'307'199, 500'000'000), Timestamp().adding(-0.5));
    EXPECT_LT(Timestamp::since1970(1), Timestamp::since1970(1, 1'000));
    EXPECT_EQ(compactSeconds(-1), 0U);
    EXPECT_EQ(compactSeconds(4'294'967'295), 4'294'967'295U);
    EXPECT_EQ(compactSeconds(4'294'967'296), 4'294'967'295U);
}

TEST(Calendar, ReadsMomentsInUTC) {
    struct Case {
        double moment;
        DateComponents parts;
    };
    for (const auto& [moment, parts] :
         std::vector<Case>{{0, {1970, 1, 1, 0, 0, 0}},
                           {-0.5, {1969, 12, 31, 23, 59, 59}},
                           {951'782'400, {2000, 2, 29, 0, 0, 0}},
                           {978'307'200.9, {2001, 1, 1, 0, 0, 0}},
                           {4'294'967'295, {2106, 2, 7, 6, 28, 15}}}) {
        EXPECT_EQ(Calendar::utc().components(Timestamp::since1970(moment)), parts) << moment;
    }
}

// Against std::vector, step by step.
TEST(GrowingArray, HoldsWhatAVectorHolds) {
    std::mt19937 random(7);
    GrowingArray<std::uint32_t> array;
    std::vector<std::uint32_t> model;
    for (std::uint32_t step = 0; step < 2'000; ++step) {
        const std::size_t count = random() % 40;
        switch (random() % 6) {
        case 0:
            array.push(step);
            model.push_back(step);
            break;
        case 1:
            array.append(count, step);
            model.insert(model.end(), count, step);
            break;
        case 2:
            array.resize(count * 10);
            model.resize(count * 10);
            break;
        case 3: {
            const std::vector<std::uint32_t> more(count, step + 1);
            array.append(more);
            model.insert(model.end(), more.begin(), more.end());
            break;
        }
        case 4: {
            const GrowingArray<std::uint32_t> copy = array;
            array.push(step);
            array = copy;
            break;
        }
        default: {
            GrowingArray<std::uint32_t> moved = std::move(array);
            array = std::move(moved);
            break;
        }
        }
        ASSERT_EQ(std::vector<std::uint32_t>(array.begin(), array.end()), model) << step;
    }
}

} // namespace
} // namespace tidyro
