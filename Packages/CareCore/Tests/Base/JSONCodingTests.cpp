#include "Base/JSONCoding.h"

#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>

// Records need linkage, so these stand in a namespace of their own.
namespace tidyro::coded {

enum class Colour { red, darkBlue };
constexpr RawValueTable<Colour, 2> rawValues(RawValueTag<Colour>) {
    return {{{{Colour::red, "red"}, {Colour::darkBlue, "dark-blue"}}}};
}

struct Part {
    std::uint64_t bytes;
    std::optional<std::string> note = std::nullopt;

    static constexpr auto fields() {
        return fieldList<Part>(field("bytes", &Part::bytes), field("note", &Part::note));
    }
    bool operator==(const Part&) const = default;
};

struct Sample {
    bool isOn;
    double ratio;
    std::string words;
    Timestamp at;
    FileURL place;
    UUID id;
    std::int8_t small;
    Colour colour;
    std::vector<Part> parts;
    std::set<std::string> tags;
    Part main;
    std::optional<Part> other = std::nullopt;

    static constexpr auto fields() {
        return fieldList<Sample>(field("z", &Sample::isOn), field("ratio", &Sample::ratio),
                                 field("words", &Sample::words), field("at", &Sample::at),
                                 field("place", &Sample::place), field("id", &Sample::id),
                                 field("small", &Sample::small), field("colour", &Sample::colour),
                                 field("parts", &Sample::parts), field("tags", &Sample::tags),
                                 field("main", &Sample::main), field("other", &Sample::other));
    }
    bool operator==(const Sample&) const = default;
};

} // namespace tidyro::coded

namespace tidyro {
namespace {

using namespace std::string_view_literals;
using coded::Sample;
using Kind = DecodingError::Kind;

Sample sample() {
    return {.isOn = true,
            .ratio = 0.1,
            .words = "\"\u00E4\n",
            .at = Timestamp::since1970(978'307'200.5),
            .place = FileURL::folder("/a b"),
            .id = UUID::fromText("00112233-4455-6677-8899-AABBCCDDEEFF").value_or(UUID()),
            .small = -128,
            .colour = coded::Colour::darkBlue,
            .parts = {{.bytes = UINT64_MAX}, {.bytes = 0, .note = ""}},
            .tags = {"b", "a"},
            .main = {.bytes = 1}};
}

constexpr std::string_view sampleText =
    R"({"z":true,"ratio":0.1,"words":"\"ä\n","at":0.5,"place":"file:///a%20b/",)"
    R"("id":"00112233-4455-6677-8899-AABBCCDDEEFF","small":-128,"colour":"dark-blue",)"
    R"("parts":[{"bytes":18446744073709551615},{"bytes":0,"note":""}],"tags":["a","b"],)"
    R"("main":{"bytes":1}})";

TEST(JSONCoding, WritesKeysInOrderAndReadsThemInAny) {
    EXPECT_EQ(jsonText(toJSON(sample())), sampleText);
    Sample full = sample();
    full.other = {.bytes = 7, .note = "n"};
    for (const Sample& record : {sample(), full}) {
        JSON turned = {{"unknown", 1}, {"other", nullptr}};
        const JSON document = toJSON(record);
        for (auto entry = document.rbegin(); entry != document.rend(); ++entry) {
            turned[entry.key()] = entry.value();
        }
        EXPECT_EQ(fromJSONText<Sample>(jsonText(turned, 2)), record);
    }
}

TEST(JSONCoding, SaysWhatIsDamagedAndWhere) {
    struct Damage {
        std::string pointer;
        std::optional<JSON> value; ///< none: the key is missing
        Kind kind;
        std::string path;
    };
    for (const auto& [pointer, value, kind, path] :
         std::vector<Damage>{{"/z", std::nullopt, Kind::missingKey, "z"},
                             {"/z", 1, Kind::typeMismatch, "z"},
                             {"/ratio", nullptr, Kind::typeMismatch, "ratio"},
                             {"/at", "now", Kind::typeMismatch, "at"},
                             {"/place", "/a b", Kind::dataCorrupted, "place"},
                             {"/id", "0011", Kind::dataCorrupted, "id"},
                             {"/small", 128, Kind::typeMismatch, "small"},
                             {"/colour", "Red", Kind::dataCorrupted, "colour"},
                             {"/parts/1", "x", Kind::typeMismatch, "parts"},
                             {"/parts/1/bytes", std::nullopt, Kind::missingKey, "parts.bytes"},
                             {"/tags/0", false, Kind::typeMismatch, "tags"},
                             {"/main/note", 5, Kind::typeMismatch, "main.note"},
                             {"/other", JSON::object(), Kind::missingKey, "other.bytes"}}) {
        JSON document = toJSON(sample());
        const JSON::json_pointer place(pointer);
        if (value) {
            document[place] = *value;
        } else {
            document[place.parent_pointer()].erase(place.back());
        }
        const auto read = fromJSON<Sample>(document);
        ASSERT_FALSE(read) << document;
        EXPECT_EQ(read.error().kind, kind) << document;
        EXPECT_EQ(read.error().path, path) << document;
        EXPECT_NE(read.error().description().find("(at " + path + ")"), std::string::npos);
    }
}

TEST(JSONCoding, KeepsNumbersInTheirRange) {
    EXPECT_EQ(fromJSONText<std::uint8_t>("255"), 255);
    EXPECT_EQ(fromJSONText<std::int64_t>("9223372036854775807"), INT64_MAX);
    EXPECT_EQ(fromJSONText<std::int64_t>("-9223372036854775808"), INT64_MIN);
    EXPECT_EQ(fromJSONText<double>("12"), 12.0);
    for (const std::string_view text : {"256", "-1", "1.0", "1e1", "true", "\"1\"", "[1]"}) {
        EXPECT_FALSE(fromJSONText<std::uint8_t>(text)) << text;
    }
    EXPECT_FALSE(fromJSONText<std::uint64_t>("18446744073709551616"));
    EXPECT_FALSE(fromJSONText<std::int8_t>("-129"));
    for (const std::string_view text : {"9223372036854775808", "-9223372036854775809", "1.5"}) {
        EXPECT_FALSE(fromJSONText<std::int64_t>(text)) << text;
    }
}

TEST(JSONCoding, RefusesHostileBytes) {
    const std::string deep(10'000, '[');
    const auto bottomless = fromJSONText<Sample>(deep + std::string(10'000, ']'));
    ASSERT_FALSE(bottomless);
    EXPECT_EQ(bottomless.error().kind, Kind::typeMismatch);
    for (const std::string_view text : std::vector<std::string_view>{
             deep, "", " ", "{\"z\":", "{}{}", "1e999", "-1e999", "[1,]", "NaN", "01", "'a'",
             "\"\n\"", "\"\xFF\"", "\"\xED\xA0\x80\"", "\"\\ud800\"", "/**/1", "\0 1"sv}) {
        const auto read = parseJSON(text);
        ASSERT_FALSE(read) << text;
        EXPECT_EQ(read.error().kind, Kind::malformed) << text;
    }
}

// A zero byte is not the end of what was read from a file.
TEST(JSONCoding, ReadsTheDocumentToItsEnd) {
    for (const std::string_view text : {"{}\0"sv, "{}\0{"sv, "1\0\xFF"sv}) {
        const auto read = parseJSON(text);
        EXPECT_FALSE(read) << *read;
    }
}

TEST(JSONCoding, LosesNoByteOfAPlaceAndRepairsText) {
    Sample record = sample();
    record.place = FileURL::file("/\xFF\xC3/caf\xE9");
    record.words = "a\xFFz";
    const auto read = fromJSONText<Sample>(jsonText(toJSON(record)));
    ASSERT_TRUE(read);
    EXPECT_EQ(read->place, record.place);
    EXPECT_EQ(read->words, "a\uFFFDz");
}

} // namespace
} // namespace tidyro
