#include "Base/StableHash.h"

#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <unordered_set>
#include <variant>
#include <vector>

#include <gtest/gtest.h>

// Records need linkage, so these stand in a namespace of their own.
namespace tidyro::hashed {

enum class Colour { red, blue };
constexpr RawValueTable<Colour, 2> rawValues(RawValueTag<Colour>) {
    return {{{{Colour::red, "red"}, {Colour::blue, "blue"}}}};
}

struct Painted {
    Colour colour;
    std::optional<std::string> note = std::nullopt;

    static constexpr std::string_view caseName = "painted";
    static constexpr auto fields() {
        return fieldList<Painted>(field("colour", &Painted::colour), field("note", &Painted::note));
    }
    bool operator==(const Painted&) const = default;
};
struct Bare {
    static constexpr std::string_view caseName = "bare";
    static constexpr auto fields() { return fieldList<Bare>(); }
    bool operator==(const Bare&) const = default;
};
struct Wall {
    using Cases = std::variant<Painted, Bare>;
    Cases value;
    bool operator==(const Wall&) const = default;
};

struct Room {
    std::int8_t floor;
    std::vector<Wall> walls;
    std::set<std::string> names;
    FileURL place;
    UUID id;
    Timestamp built;
    double height;
    bool isOpen;

    static constexpr auto fields() {
        return fieldList<Room>(field("floor", &Room::floor), field("walls", &Room::walls),
                               field("names", &Room::names), field("place", &Room::place),
                               field("id", &Room::id), field("built", &Room::built),
                               field("height", &Room::height), field("isOpen", &Room::isOpen));
    }
    bool operator==(const Room&) const = default;
};

} // namespace tidyro::hashed

namespace tidyro {
namespace {

using namespace std::string_literals;
using hashed::Room;

Room room() {
    return {.floor = -1,
            .walls = {{hashed::Painted{.colour = hashed::Colour::blue, .note = "new"}},
                      {hashed::Painted{.colour = hashed::Colour::red}},
                      {hashed::Bare{}}},
            .names = {"b", "a"},
            .place = FileURL::folder("/a\xFF"),
            .id = UUID::fromText("00112233-4455-6677-8899-AABBCCDDEEFF").value_or(UUID()),
            .built = Timestamp::sinceReference(0.5),
            .height = 2.5,
            .isOpen = true};
}

// Worked out apart from this code, from the form that the header describes: a hash that was kept
// must not change under whoever kept it.
TEST(StableHash, IsTheSameForEver) {
    EXPECT_EQ(StableHashState().value(), 0xCA68'C604'9E4C'776BU);
    EXPECT_EQ(stableHash(std::uint64_t{1}), 0xD89A'47A3'485F'9B60U);
    EXPECT_EQ(stableHash("abc"s), 0x1D32'AFE0'99B2'E776U);
    EXPECT_EQ(stableHash(hashed::Colour::red), stableHash("red"s));
    EXPECT_EQ(stableHash(room()), 0x0631'91D4'7D0C'1325U);
}

TEST(StableHash, IsEqualForEqualValues) {
    EXPECT_EQ(stableHash(-0.0), stableHash(0.0));
    EXPECT_EQ(stableHash(Timestamp::sinceReference(-0.0)), stableHash(Timestamp()));
    EXPECT_EQ(stableHash(FileURL::folder("/a//b/./")), stableHash(FileURL::folder("/a/b")));
}

TEST(StableHash, HearsOfEveryPart) {
    std::vector<Room> rooms(12, room());
    rooms[1].floor = 1;
    rooms[2].walls.pop_back();
    rooms[3].walls[0] = {hashed::Bare{}};
    rooms[4].walls[1] = {hashed::Painted{.colour = hashed::Colour::red, .note = ""}};
    rooms[5].names = {"ab"};
    rooms[6].place = FileURL::file("/a\xFF");
    rooms[7].place = FileURL::folder("/a");
    rooms[8].id = UUID();
    rooms[9].built = rooms[9].built.adding(1e-9);
    rooms[10].height = -rooms[10].height;
    rooms[11].isOpen = false;
    EXPECT_EQ((std::unordered_set<Room, StableHasher>(rooms.begin(), rooms.end()).size()), 12U);
    std::set<std::uint64_t> hashes;
    for (const Room& each : rooms) hashes.insert(stableHash(each));
    EXPECT_EQ(hashes.size(), 12U);

    using Texts = std::vector<std::string>;
    EXPECT_NE(stableHash(Texts{"ab", "c"}), stableHash(Texts{"a", "bc"}));
    EXPECT_NE(stableHash(Texts{""}), stableHash(Texts{}));
}

// Sizes are multiples of a block, numbers end in zero bytes: a table whose size is a power of two
// must not put them all into the same few places.
TEST(StableHash, SpreadsNumbersThatAreAlike) {
    for (const int shift : {0, 12, 54}) {
        std::set<std::uint64_t> byLowBits;
        std::set<std::uint64_t> byHighBits;
        for (std::uint64_t number = 0; number < 1'024; ++number) {
            byLowBits.insert(stableHash(number << shift) % 1'024);
            byHighBits.insert(stableHash(number << shift) >> 54);
        }
        EXPECT_GT(byLowBits.size(), 550U) << shift; // thrown at random they hit some 647
        EXPECT_GT(byHighBits.size(), 550U) << shift;
    }
}

} // namespace
} // namespace tidyro
