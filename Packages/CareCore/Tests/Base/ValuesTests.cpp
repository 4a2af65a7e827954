// The small values that records are made of.
#include <cstdint>
#include <limits>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "Base/Calendar.h"
#include "Base/Saturating.h"
#include "Base/SharedText.h"
#include "Base/Timestamp.h"
#include "Base/UUID.h"

namespace tidyro {
namespace {

TEST(Saturating, StaysAtTheEndsOfItsRange) {
    constexpr std::uint64_t largest = std::numeric_limits<std::uint64_t>::max();
    EXPECT_EQ(saturatingAdd(largest - 1, 1), largest);
    EXPECT_EQ(saturatingAdd(largest, 1), largest);
    EXPECT_EQ(saturatingMultiply(1ULL << 32, (1ULL << 32) - 1), largest - ((1ULL << 32) - 1));
    EXPECT_EQ(saturatingMultiply(1ULL << 32, 1ULL << 32), largest);
    EXPECT_EQ(saturatingSubtract<std::uint32_t>(5, 3), 2U);
    EXPECT_EQ(saturatingSubtract<std::uint32_t>(3, 5), 0U);
}

TEST(UUID, ReadsAndWritesItsText) {
    const UUID id = UUID::fromText("00112233-4455-6677-8899-aabbccDDEEFF").value_or(UUID());
    EXPECT_EQ(id.text(), "00112233-4455-6677-8899-AABBCCDDEEFF");
    EXPECT_EQ(id.bytes()[15], 0xFF);
    for (const std::string_view damaged :
         {"", "00112233445566778899AABBCCDDEEFF", "00112233-4455-6677-8899-AABBCCDDEEF",
          "00112233-4455-6677-8899-AABBCCDDEEFF0", "0011223-34455-6677-8899-AABBCCDDEEFF",
          "0x112233-4455-6677-8899-AABBCCDDEEFF", "-1112233-4455-6677-8899-AABBCCDDEEFF",
          "+0112233-4455-6677-8899-AABBCCDDEEFF", "00112233-4455-6677-8899-AABBCCDDEEFG"}) {
        EXPECT_FALSE(UUID::fromText(damaged)) << damaged;
    }
}

TEST(Timestamp, CountsFromTwoEpochs) {
    EXPECT_EQ(Timestamp::since1970(0).secondsSinceReference(), -978'307'200.0);
    EXPECT_EQ(Timestamp::since1970(978'307'199, 500'000'000), Timestamp().adding(-0.5));
    EXPECT_EQ(compactSeconds(-1), 0U);
    EXPECT_EQ(compactSeconds(4'294'967'295), 4'294'967'295U);
    EXPECT_EQ(compactSeconds(4'294'967'296), 4'294'967'295U);
}

TEST(Calendar, ReadsMomentsInUTC) {
    for (const auto& [moment, parts] :
         std::vector<std::pair<double, DateComponents>>{{-0.5, {1969, 12, 31, 23, 59, 59}},
                                                        {951'782'400, {2000, 2, 29, 0, 0, 0}},
                                                        {978'307'200.9, {2001, 1, 1, 0, 0, 0}},
                                                        {4'294'967'295, {2106, 2, 7, 6, 28, 15}}}) {
        EXPECT_EQ(Calendar::utc().components(Timestamp::since1970(moment)), parts) << moment;
    }
}

TEST(SharedText, LivesAsLongAsItsLastCopy) {
    std::vector<SharedText> copies;
    {
        const SharedText made = SharedText::made(std::string("put to") + "gether");
        copies.assign(3, made);
        copies.push_back(copies.front());
    }
    copies.erase(copies.begin());
    const SharedText& same = copies[0];
    copies[0] = same;
    copies[1] = "a literal";
    copies[2] = std::move(copies[0]);
    EXPECT_EQ(copies[2].text(), "put together");
    EXPECT_EQ(copies[1], "a literal");
    EXPECT_EQ(copies[0], SharedText()) << "what was moved is empty";
    EXPECT_EQ(SharedText::made(""), SharedText());
    EXPECT_EQ(SharedText::made(std::string("a\0b", 3)).text(), std::string_view("a\0b", 3));
}

} // namespace
} // namespace tidyro
