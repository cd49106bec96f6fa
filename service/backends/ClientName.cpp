#include "service/backends/ClientName.h"

#include <pwd.h>
#include <unistd.h>

#include <array>

namespace vexil {

std::string NameOfUser() {
    const uid_t user = ::geteuid();
    passwd entry{};
    passwd* found = nullptr;
    std::array<char, 4096> buffer{};
    const bool hasName = ::getpwuid_r(user, &entry, buffer.data(), buffer.size(), &found) == 0 &&
                         found != nullptr && *entry.pw_name != '\0';
    return hasName ? entry.pw_name : std::to_string(user);
}

std::string ChooseClientName(const std::string& user,
                             const std::function<bool(const std::string&)>& isTaken) {
    std::string name = kClientName;
    for (int number = 1; isTaken(name); ++number) {
        name =
            std::string(kClientName) + " (" + user + (number == 1 ? "" : ", " + std::to_string(number)) + ")";
    }
    return name;
}

}  // namespace vexil
