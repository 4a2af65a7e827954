// Enumerations with associated values as JSON.
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include <gtest/gtest.h>

#include "Base/JSONCoding.h"

// Records need linkage, so these stand in a namespace of their own.
namespace tidyro::shaped {

struct Circle {
    double radius;

    static constexpr std::string_view caseName = "circle";
    static constexpr auto fields() { return fieldList<Circle>(field("_0", &Circle::radius)); }
    bool operator==(const Circle&) const = default;
};
struct Polygon {
    std::uint8_t corners;
    std::optional<std::string> name = std::nullopt;

    static constexpr std::string_view caseName = "polygon";
    static constexpr auto fields() {
        return fieldList<Polygon>(field("corners", &Polygon::corners),
                                  field("name", &Polygon::name));
    }
    bool operator==(const Polygon&) const = default;
};
struct Point {
    static constexpr std::string_view caseName = "point";
    static constexpr auto fields() { return fieldList<Point>(); }
    bool operator==(const Point&) const = default;
};
struct Shape {
    using Cases = std::variant<Circle, Polygon, Point>;
    Cases value;
    bool operator==(const Shape&) const = default;
};

struct Drawing {
    std::vector<Shape> shapes;
    std::optional<Shape> frame = std::nullopt;

    static constexpr auto fields() {
        return fieldList<Drawing>(field("shapes", &Drawing::shapes),
                                  field("frame", &Drawing::frame));
    }
    bool operator==(const Drawing&) const = default;
};

struct SameNames {
    using Cases = std::variant<Circle, Point, Circle>;
    Cases value;
};
static_assert(CaseEnumeration<Shape> && !CaseEnumeration<SameNames> && !CaseEnumeration<Circle>);

} // namespace tidyro::shaped

namespace tidyro {
namespace {

using shaped::Shape;
using Kind = DecodingError::Kind;

TEST(CaseCoding, IsAnObjectWithOneKey) {
    for (const auto& [shape, text] : std::vector<std::pair<Shape, std::string_view>>{
             {{shaped::Circle{.radius = 0.5}}, R"({"circle":{"_0":0.5}})"},
             {{shaped::Polygon{.corners = 3}}, R"({"polygon":{"corners":3}})"},
             {{shaped::Polygon{.corners = 4, .name = "square"}},
              R"({"polygon":{"corners":4,"name":"square"}})"},
             {{shaped::Point{}}, R"({"point":{}})"}}) {
        EXPECT_EQ(jsonText(toJSON(shape)), text);
        EXPECT_EQ(fromJSONText<Shape>(text), shape) << text;
    }
}

TEST(CaseCoding, SaysWhatIsDamagedAndWhere) {
    constexpr std::string_view wrongCount = "Invalid number of keys found, expected one.";
    struct Damage {
        std::string_view text;
        Kind kind;
        std::string_view path;
        std::string_view reason = {}; ///< not compared when empty
    };
    for (const auto& [text, kind, path, reason] :
         {Damage{"{}", Kind::typeMismatch, "", wrongCount},
          Damage{R"({"circle":{"_0":1},"point":{}})", Kind::typeMismatch, "", wrongCount},
          Damage{R"({"circle":{"_0":1},"?":{}})", Kind::typeMismatch, "", wrongCount},
          Damage{R"("point")", Kind::typeMismatch, ""}, Damage{"[]", Kind::typeMismatch, ""},
          Damage{"null", Kind::typeMismatch, ""},
          Damage{R"({"Circle":{"_0":1}})", Kind::dataCorrupted, "",
                 "The enumeration has no case \"Circle\"."},
          Damage{R"({"circle":null})", Kind::typeMismatch, "circle"},
          Damage{R"({"circle":1.5})", Kind::typeMismatch, "circle"},
          Damage{R"({"circle":{"radius":1.5}})", Kind::missingKey, "circle._0"},
          Damage{R"({"polygon":{"corners":256}})", Kind::typeMismatch, "polygon.corners"},
          Damage{R"({"polygon":{"corners":5,"name":[]}})", Kind::typeMismatch, "polygon.name"}}) {
        const auto read = fromJSONText<Shape>(text);
        ASSERT_FALSE(read) << text;
        EXPECT_EQ(read.error().kind, kind) << text;
        EXPECT_EQ(read.error().path, path) << text;
        EXPECT_TRUE(reason.empty() || read.error().reason == reason) << read.error().reason;

        const std::string drawing =
            R"({"shapes":[{"point":{}},)" + std::string(text) + R"(],"frame":{"point":{}}})";
        const auto within = fromJSONText<shaped::Drawing>(drawing);
        ASSERT_FALSE(within) << drawing;
        EXPECT_EQ(within.error().path, path.empty() ? "shapes" : "shapes." + std::string(path));
    }
}

} // namespace
} // namespace tidyro
