// A stored domain, XML or binary. What is read keeps its values when another key is changed and it is written
// and read again.
#include "platform/linux/preferences/PropertyList.h"

#include <array>
#include <map>
#include <optional>
#include <string>

#include "tests/fuzz/FuzzCheck.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    using namespace vexil;
    using namespace vexil::test;
    constexpr std::array kKeys = {"a", "b", "InputPorts", "MiscOptions", "05 PortFlags", ""};
    const std::string content(reinterpret_cast<const char*>(bytes), size);
    std::string problem;
    const std::optional<PropertyList> list = PropertyList::Read(content, problem);
    if (!list) {
        Check(!problem.empty(), "a refusal has its reason");
        return 0;
    }
    const PropertyRef number = MakePropertyNumber(-7);
    std::optional<PropertyList::Change> change =
        list->Prepare({{"changed", number}, {"removed", nullptr}}, problem);
    if (!change) {
        Check(!problem.empty(), "a refusal has its reason");
        return 0;
    }
    const std::optional<PropertyList> again = PropertyList::Read(change->xml, problem);
    Check(again.has_value(), ("what was written is read: " + problem).c_str());
    PropertyList applied = *list;
    applied.Apply(*change);
    for (const PropertyList* one : std::array<const PropertyList*, 2>{&applied, &*again}) {
        Check(SameProperty(one->Find("changed"), number), "the changed key has its value");
        Check(one->Find("removed") == nullptr, "the removed key is gone");
        for (const char* key : kKeys) {
            const PropertyRef before = list->Find(key);
            const PropertyRef after = one->Find(key);
            Check((before == nullptr) == (after == nullptr), "no other key comes or goes");
            Check(before == nullptr || before->Type() == after->Type(), "no other key changes its type");
            Check(before == nullptr || before->Type() == PropertyType::Opaque || SameProperty(before, after),
                  "no other key changes its value");
        }
    }
    return 0;
}
