// The host list from the driver, in a buffer of exactly its length.
#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "driver/HostInfos.h"
#include "tests/fuzz/FuzzCheck.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    using namespace vexil;
    using namespace vexil::test;
    const std::vector<std::uint8_t> buffer(bytes, bytes + size);
    const HostInfos infos = ParseHostInfos(buffer.data(), buffer.size());
    Check(infos.cachedLength <= size, "no more is cached than there is");

    // The records once more: a name, and 17 bytes behind its end with the tags 'A', 'L', 'E' at 1, 8 and 15.
    const std::string text(buffer.begin(), buffer.end());
    std::size_t record = 0;
    std::size_t count = 0;
    for (bool whole = true; whole && record < text.size() && text[record] == 'N';) {
        const std::size_t end = text.find('\0', record);
        if (end == std::string::npos) {
            break;
        }
        Check(count < infos.names.size(), "no name is missing");
        const char* name = infos.names[count++];
        Check(name == reinterpret_cast<const char*>(buffer.data()) + record + 1,
              "the name begins behind its tag");
        Check(std::strlen(name) == end - record - 1, "the name ends at its zero");
        whole =
            end + 15 < text.size() && text[end + 1] == 'A' && text[end + 8] == 'L' && text[end + 15] == 'E';
        record = whole ? end + 18 : record;
    }
    Check(count == infos.names.size(), "no name is added");
    Check(infos.cachedLength == (record == 0 ? 0 : std::min(record + 1, size)),
          "the complete records are cached");
    return 0;
}
