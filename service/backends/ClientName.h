// By which name the service is a client of a MIDI system.
#pragma once

#include <functional>
#include <string>

namespace vexil {

inline constexpr const char* kClientName = "Vexil III";

// The user whom this process belongs to; a number for one without a name.
std::string NameOfUser();

// "Vexil III"; "Vexil III (anna)" where another service has that name, and "Vexil III (anna, 2)" where one of
// the same user has that.
std::string ChooseClientName(const std::string& user, const std::function<bool(const std::string&)>& isTaken);

}  // namespace vexil
