#include "CareDomain/CleanupAuthorization.h"

#include <cstdint>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>

#include "Base/JSONCoding.h"
#include "Base/StableHash.h"

namespace tidyro {
namespace {

using namespace authorization;

struct Row {
    CleanupAuthorization authorization;
    std::string_view json;
    std::string_view rootPath;
    std::string_view summary;
};

std::vector<Row> rows() {
    return {
        {{BuiltInRule{.id = "npm", .rootURL = FileURL::folder("/home/ada/.npm")}},
         R"({"builtInRule":{"id":"npm","rootURL":"file:///home/ada/.npm/"}})",
         "/home/ada/.npm",
         "Shipped rule npm at /home/ada/.npm"},
        {{UserSelectedRoot{.url = FileURL::folder("/data/old")}},
         R"({"userSelectedRoot":{"_0":"file:///data/old/"}})",
         "/data/old",
         "The folder you chose: /data/old"},
        {{UserSelectedApplication{.bundleURL = FileURL::folder("/Applications/Paint.app"),
                                  .bundleIdentifier = "org.example.paint"}},
         R"({"userSelectedApplication":{"bundleURL":"file:///Applications/Paint.app/",)"
         R"("bundleIdentifier":"org.example.paint"}})",
         "/Applications/Paint.app",
         "The application you chose: Paint.app"},
        {{UserSelectedApplication{.bundleURL = FileURL::folder("/Applications/Paint.app")}},
         R"({"userSelectedApplication":{"bundleURL":"file:///Applications/Paint.app/"}})",
         "/Applications/Paint.app",
         "The application you chose: Paint.app"},
        {{AIToolRule{.toolID = "tool", .ruleID = "logs", .rootURL = FileURL::folder("/h/.tool")}},
         R"({"aiToolRule":{"toolID":"tool","ruleID":"logs","rootURL":"file:///h/.tool/"}})",
         "/h/.tool",
         "AI tool adapter tool rule logs at /h/.tool"},
        {{ProjectArtifact{.workspaceURL = FileURL::folder("/h/web"),
                          .projectURL = FileURL::folder("/h/web/site"),
                          .folderName = "node_modules"}},
         R"({"projectArtifact":{"workspaceURL":"file:///h/web/",)"
         R"("projectURL":"file:///h/web/site/","folderName":"node_modules"}})",
         "/h/web/site",
         "Generated folder node_modules in the project site"},
        {{DiskItem{.placeID = "downloads", .itemURL = FileURL::file("/h/Downloads/a b.dmg")}},
         R"({"diskItem":{"placeID":"downloads","itemURL":"file:///h/Downloads/a%20b.dmg"}})",
         "/h/Downloads/a b.dmg",
         "a b.dmg in the known place downloads"},
        {{DiskItem{.itemURL = FileURL::file("/h/Downloads/a b.dmg")}},
         R"({"diskItem":{"itemURL":"file:///h/Downloads/a%20b.dmg"}})",
         "/h/Downloads/a b.dmg",
         "a b.dmg, which you chose"},
    };
}

TEST(CleanupAuthorization, IsBoundedAndExplained) {
    std::set<std::uint64_t> hashes;
    for (const auto& [authorization, json, rootPath, summary] : rows()) {
        EXPECT_EQ(jsonText(toJSON(authorization)), json);
        EXPECT_EQ(fromJSONText<CleanupAuthorization>(json), authorization);
        EXPECT_EQ(authorization.rootURL().path(), rootPath);
        EXPECT_EQ(authorization.provenanceSummary(), summary);
        EXPECT_EQ(authorization.isDiskItem(), json.starts_with(R"({"diskItem")"));
        EXPECT_EQ(authorization.isProjectArtifact(), json.starts_with(R"({"projectArtifact")"));
        EXPECT_EQ(authorization.isApplicationBundle(),
                  json.starts_with(R"({"userSelectedApplication")"));
        hashes.insert(stableHash(authorization));
    }
    EXPECT_EQ(hashes.size(), rows().size());
}

} // namespace
} // namespace tidyro
