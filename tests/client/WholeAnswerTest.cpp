#include "client/WholeAnswer.h"

#include <gmock/gmock.h>

#include <map>
#include <vector>

namespace vexil {
namespace {

using Outcome = ServiceAnswer::Outcome;
using ::testing::ElementsAre;

class WholeAnswerTest : public ::testing::Test {
  protected:
    ServiceAnswer Ask() {
        return AskWhole(
            [this](std::uint32_t first) {
                asked.push_back(first);
                const auto found = answers.find(first);
                return found == answers.end() ? ServiceAnswer{Outcome::Failed, "no answer", {}}
                                              : ServiceAnswer{Outcome::Answered, {}, found->second};
            },
            {"hosts", "sessions", "ports"});
    }

    std::map<std::uint32_t, std::string> answers;
    std::vector<std::uint32_t> asked;
};

TEST_F(WholeAnswerTest, OneAnswerStaysAsItIs) {
    answers[0] = R"({ "ports" : [1]})";
    EXPECT_EQ(answers[0], Ask().data);
    EXPECT_THAT(asked, ElementsAre(0));
}

TEST_F(WholeAnswerTest, SeveralAnswersAreJoinedInTheirOrder) {
    answers[0] = R"({"host":"a","hosts":[1,2],"sessions":[],"ports":[],"next":2,"portsLeftOut":3})";
    answers[2] = R"({"host":"b","hosts":[3],"sessions":[4],"ports":[5],"next":5,"portsLeftOut":2})";
    answers[5] = R"({"host":"c","hosts":[],"sessions":[],"ports":[6,7]})";
    EXPECT_EQ(R"({"host":"a","hosts":[1,2,3],"sessions":[4],"ports":[5,6,7]})", Ask().data);
    EXPECT_THAT(asked, ElementsAre(0, 2, 5));
}

TEST_F(WholeAnswerTest, AnAnswerThatFailsIsTheResult) {
    answers[0] = R"({"ports":[],"next":2})";
    EXPECT_EQ("no answer", Ask().problem);
}

TEST_F(WholeAnswerTest, AServiceThatDoesNotGoOnIsNotAskedWithoutEnd) {
    answers[0] = R"({"ports":[1],"next":2,"portsLeftOut":1})";
    answers[2] = R"({"ports":[2],"next":2,"portsLeftOut":1})";
    EXPECT_EQ(R"({"ports":[1,2],"next":2,"portsLeftOut":1})", Ask().data);
    EXPECT_THAT(asked, ElementsAre(0, 2));
}

TEST_F(WholeAnswerTest, WhatIsNoStatusIsLeftToTheCaller) {
    for (const char* text : {"", "{", "[]", R"({"next":"2"})", R"({"next":-1})"}) {
        answers[0] = text;
        EXPECT_EQ(text, Ask().data);
    }
    answers[0] = R"({"ports":[],"next":2})";
    answers[2] = "nonsense";
    EXPECT_EQ("nonsense", Ask().data);
}

}  // namespace
}  // namespace vexil
