#include "Base/Base64.h"

#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

namespace tidyro {
namespace {

TEST(Base64, HasOneTextForEachContents) {
    const std::vector<std::pair<std::string, std::string>> known{{"", ""},
                                                                 {"f", "Zg=="},
                                                                 {"fo", "Zm8="},
                                                                 {"foo", "Zm9v"},
                                                                 {"foob", "Zm9vYg=="},
                                                                 {"fooba", "Zm9vYmE="},
                                                                 {"foobar", "Zm9vYmFy"},
                                                                 {"\xFB\xEF\xFF", "++//"}};
    for (const auto& [bytes, text] : known) {
        EXPECT_EQ(base64Text(bytes), text);
        EXPECT_EQ(base64Bytes(text), bytes);
    }
    for (const char* wrong :
         {"Zg", "Zg=", "Zg==Zg==", "Z===", "====", "Zh==", "Zm9=", "Zm 9", "Z_9v", "Zg==\n"}) {
        EXPECT_EQ(base64Bytes(wrong), std::nullopt) << wrong;
    }
}

} // namespace
} // namespace tidyro
