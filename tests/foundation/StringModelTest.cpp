// Long random sequences of operations on a few strings, side by side with std::string. The seeds are fixed.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <random>
#include <string>

#include "shared/System/svString.h"

namespace vexil {
namespace {

constexpr std::size_t kStrings = 5;
constexpr int kSteps = 4000;
constexpr int kOperations = 24;
constexpr std::size_t kLongestText = 300;

class StringModel : public testing::TestWithParam<unsigned> {
  protected:
    int Random(int most) { return std::uniform_int_distribution<int>(0, most)(random); }
    char RandomCharacter() { return "ab \tc"[Random(4)]; }
    std::string RandomText() {
        std::string text(static_cast<std::size_t>(Random(6)), ' ');
        for (char& character : text) {
            character = RandomCharacter();
        }
        return text;
    }
    std::size_t RandomIndex() { return static_cast<std::size_t>(Random(kStrings - 1)); }

    void Step(svString& string, std::string& model);
    void Replace(std::string& model, const std::string& from, const std::string& to);
    void Check() const;

    std::mt19937 random{GetParam()};
    std::array<svString, kStrings> strings;
    std::array<std::string, kStrings> models;
    std::array<bool, kStrings> locked = {};
};

void StringModel::Replace(std::string& model, const std::string& from, const std::string& to) {
    if (from.empty()) {
        return;
    }
    for (std::size_t at = model.find(from); at != std::string::npos; at = model.find(from, at + to.size())) {
        model.replace(at, from.size(), to);
    }
}

void StringModel::Step(svString& string, std::string& model) {
    const int length = static_cast<int>(model.size());
    const int at = Random(length);
    const auto place = static_cast<std::size_t>(at);
    const std::size_t other = RandomIndex();
    const std::string text = RandomText();
    const std::string otherModel = models[other];
    const char character = RandomCharacter();
    const std::string whiteSpace = " \t";
    switch (Random(kOperations - 1)) {
        case 0:
            string = strings[other];
            model = otherModel;
            break;
        case 1:
            string = text.c_str();
            model = text;
            break;
        case 2:
            string = character;
            model = std::string(1, character);
            break;
        case 3:
            string += strings[other];
            model += otherModel;
            break;
        case 4:
            string += text.c_str();
            model += text;
            break;
        case 5:
            string += character;
            model += character;
            break;
        case 6:
            string = string.c_str() + at;
            model = model.substr(place);
            break;
        case 7:
            string += string.c_str() + at;
            model += model.substr(place);
            break;
        case 8:
            string.Insert(at, string.c_str() + at);
            model.insert(place, model.substr(place));
            break;
        case 9:
            string.Insert(at, text.c_str());
            model.insert(place, text);
            break;
        case 10:
            string.Insert(at, character);
            model.insert(place, 1, character);
            break;
        case 11: {
            const int count = Random(length - at);
            string.Delete(at, count);
            model.erase(place, static_cast<std::size_t>(count));
            break;
        }
        case 12:
            string.TrimRight();
            model.erase(model.find_last_not_of(whiteSpace) + 1);
            break;
        case 13:
            string.TrimLeft();
            model.erase(0, std::min(model.find_first_not_of(whiteSpace), model.size()));
            break;
        case 14:
            string.TrimRight(character);
            model.erase(model.find_last_not_of(character) + 1);
            break;
        case 15:
            string.TrimRight(text.c_str());
            model.erase(model.find_last_not_of(text) + 1);
            break;
        case 16:
            string.Replace(text.c_str(), strings[other].c_str());
            Replace(model, text, otherModel);
            break;
        case 17:
            string.Replace(character, 'c');
            std::replace(model.begin(), model.end(), character, 'c');
            break;
        case 18:
            string.Remove(character);
            std::erase(model, character);
            break;
        case 19:
            string.Empty();
            model.clear();
            break;
        case 20: {
            const int count = Random(length);
            string = string.Mid(at, count);
            model = model.substr(place, static_cast<std::size_t>(count));
            break;
        }
        case 21:
            string.Format("%s<%5d>%s", string.c_str(), at, strings[other].c_str());
            {
                const std::string number = std::to_string(at);
                model += "<" + std::string(5 - number.size(), ' ') + number + ">" + otherModel;
            }
            break;
        case 22:
            string.FreeExtra();
            break;
        default:
            if (at < length) {
                string.SetAt(at, character);
                model[place] = character;
            }
            string.GetBuffer(Random(40));
    }
}

void StringModel::Check() const {
    for (std::size_t index = 0; index < kStrings; ++index) {
        const svString& string = strings[index];
        ASSERT_EQ(std::string(string.c_str(), static_cast<std::size_t>(string.GetLength())), models[index]);
        ASSERT_EQ(string.c_str()[string.GetLength()], '\0');
        ASSERT_LE(string.GetLength(), string.GetAllocLength());
        ASSERT_EQ(string.Find("ab"), static_cast<int>(models[index].find("ab")));
        ASSERT_EQ(string.IsEmpty(), models[index].empty());
    }
}

TEST_P(StringModel, AgreesWithTheStandardString) {
    for (int step = 0; step < kSteps; ++step) {
        const std::size_t index = RandomIndex();
        // Locks come and go between the edits; an edit may have ended one.
        if (Random(20) == 0) {
            strings[index].LockBuffer();
        } else if (Random(5) == 0 && strings[index].GetHeader()->nRefs == -1) {
            strings[index].UnlockBuffer();
        }
        Step(strings[index], models[index]);
        if (models[index].size() > kLongestText) {
            strings[index].Delete(0, strings[index].GetLength() - 3);
            models[index].erase(0, models[index].size() - 3);
        }
        Check();
        if (HasFatalFailure()) {
            FAIL() << "after step " << step;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Seeds, StringModel, testing::Range(1u, 13u));

}  // namespace
}  // namespace vexil
