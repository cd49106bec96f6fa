#include "service/backends/ClientName.h"

#include <gtest/gtest.h>

#include <set>

namespace vexil {
namespace {

std::string Choose(const std::set<std::string>& taken) {
    return ChooseClientName("anna", [&](const std::string& name) { return taken.contains(name); });
}

TEST(ClientNameTest, TheFirstServiceHasThePlainName) {
    EXPECT_EQ(Choose({"Other"}), "Vexil III");
}

TEST(ClientNameTest, TheSecondCarriesItsUsersName) {
    EXPECT_EQ(Choose({"Vexil III"}), "Vexil III (anna)");
}

TEST(ClientNameTest, MoreOfOneUserAreNumbered) {
    EXPECT_EQ(Choose({"Vexil III", "Vexil III (anna)"}), "Vexil III (anna, 2)");
    EXPECT_EQ(Choose({"Vexil III", "Vexil III (anna)", "Vexil III (anna, 2)"}), "Vexil III (anna, 3)");
}

TEST(ClientNameTest, EveryUserHasAName) {
    EXPECT_NE(NameOfUser(), "");
}

}  // namespace
}  // namespace vexil
