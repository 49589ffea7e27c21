#include "base/Suggestion.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

namespace kel::host {

namespace {

const std::vector<std::string> kEncodings{"keep", "int16", "int24", "int32", "float32"};

} // namespace

TEST(Suggestion, IsTheNameWithTheFewestDifferentCharacters) {
    for (const auto& [word, name] :
         std::vector<std::pair<std::string, std::string>>{{"int23", "int24"},      // replaced
                                                          {"nit16", "int16"},      // swapped
                                                          {"in16", "int16"},       // missing
                                                          {"floatt32", "float32"}, // inserted
                                                          {"INT24", "int24"},      // upper case
                                                          {"float", "float32"},    // beginning
                                                          {"oat3", "float32"}}) {  // part
        EXPECT_EQ(ClosestName(word, kEncodings), name) << word;
    }
}

TEST(Suggestion, IsMissingWhereNoNameIsClose) {
    for (const std::string word : {"", "i", "24", "mp3", "inches", "double"}) {
        EXPECT_EQ(ClosestName(word, kEncodings), std::nullopt) << word;
    }
    EXPECT_EQ(ClosestName(std::string(101, 'a'), {std::string(102, 'a')}), std::nullopt);
    EXPECT_EQ(ClosestName("int16", {}), std::nullopt);
}

TEST(Suggestion, ReplacesOrFollowsTheListOfNames) {
    EXPECT_EQ(DescribeUnknown("command", "cpy", {"copy", "run"}),
              "there is no command \"cpy\"; did you mean copy?");
    EXPECT_EQ(DescribeUnknown("command", "mix", {"copy", "run"}),
              "there is no command \"mix\"; use copy or run");
    EXPECT_STREQ(InvalidChoice("--on-clip", "wran", {"warn", "fail"}).what(),
                 "invalid value \"wran\" for --on-clip: expected warn or fail; did you mean warn?");
    EXPECT_STREQ(InvalidChoice("--on-clip", "stop", {"warn", "fail"}).what(),
                 "invalid value \"stop\" for --on-clip: expected warn or fail");
    EXPECT_STREQ(
        InvalidChoice("--field", "frame", std::vector<std::string>(13, "frames")).what(),
        "invalid value \"frame\" for --field: expected another name; did you mean frames?");
}

} // namespace kel::host
