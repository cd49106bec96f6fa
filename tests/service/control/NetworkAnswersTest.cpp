#include "service/control/NetworkAnswers.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "driver/ControlChannel.h"

namespace vexil {
namespace {

using nlohmann::json;

NetworkOverview Many(std::size_t count, const std::string& name) {
    NetworkOverview overview;
    overview.speaks = "on";
    overview.port = 11188;
    overview.key = "0123456789abcdef";
    overview.allow = "any";
    for (std::size_t i = 0; i < count; ++i) {
        overview.computers.push_back(
            {name + std::to_string(i), "192.168.1.5:11188", "ab12cd34ef56ab78", 1'790'000'000 + i, "pinned"});
    }
    return overview;
}

TEST(NetworkAnswers, AListHasEveryField) {
    NetworkOverview overview = Many(1, "studio");
    overview.secret = true;
    overview.problem = "The port is taken.";
    overview.avahi = "No Avahi.";
    EXPECT_EQ(json::parse(R"({"speaks": "on", "port": 11188, "key": "0123456789abcdef", "allow": "any",
                              "secret": true, "problem": "The port is taken.", "avahi": "No Avahi.", "rtp": false,
                              "computers": [{"name": "studio0", "address": "192.168.1.5:11188",
                                             "key": "ab12cd34ef56ab78", "since": 1790000000,
                                             "state": "pinned"}]})"),
              json::parse(NetworkList(overview)));
}

TEST(NetworkAnswers, AListThatIsTooLongGoesOnInTheNextAnswer) {
    constexpr std::size_t kCount = 2000;
    const NetworkOverview overview = Many(kCount, "computer number ");
    std::vector<std::string> names;
    std::size_t first = 0;
    int answers = 0;
    for (bool more = true; more && answers < 100; ++answers) {
        const std::string text = NetworkList(overview, first);
        EXPECT_LE(text.size(), kMaxControlData);
        const json list = json::parse(text);
        EXPECT_EQ(11188, list["port"]) << "the rest is in every answer";
        for (const json& computer : list["computers"]) {
            names.push_back(computer["name"]);
        }
        more = list.contains("next");
        first = more ? list["next"].get<std::size_t>() : 0;
    }
    EXPECT_GT(answers, 1);
    ASSERT_EQ(kCount, names.size());
    EXPECT_EQ("computer number 0", names.front());
    EXPECT_EQ("computer number 1999", names.back());
}

TEST(NetworkAnswers, AComputerThatNoAnswerHoldsIsPassedOver) {
    NetworkOverview overview = Many(3, "studio");
    overview.computers[1].name = std::string(kMaxControlData, 'x');
    const json list = json::parse(NetworkList(overview));
    EXPECT_EQ(2U, list["computers"].size());
    EXPECT_FALSE(list.contains("next"));
}

TEST(NetworkAnswers, BytesThatAreNoTextBecomeTheReplacement) {
    EXPECT_EQ("\xEF\xBF\xBD", json::parse(NetworkProblem("\xFF"))["problem"]);
    EXPECT_EQ(
        "a\xEF\xBF\xBD",
        json::parse(NetworkList(Many(1, "a\xFF")))["computers"][0]["name"].get<std::string>().substr(0, 4));
}

TEST(NetworkAnswers, AChangeIsASentence) {
    EXPECT_EQ((json{{"done", "It is blocked."}}), json::parse(NetworkDone("It is blocked.")));
    EXPECT_EQ((json{{"problem", "It is unknown."}}), json::parse(NetworkProblem("It is unknown.")));
}

}  // namespace
}  // namespace vexil
