// An answer of the service with lists that one reply may have no room for.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "client/ServiceClient.h"

namespace vexil {

// Joins the lists of the answers to one question into the first answer.
class WholeAnswer {
  public:
    explicit WholeAnswer(std::vector<std::string> namesOfLists);

    // The next answer, JSON text. Returns the entry from which on the next one is to be asked for; null when
    // nothing is left, or when the answer is no JSON object: that one is what the whole comes to then, for
    // the caller to find. What a service says again and again is not asked for without end.
    std::optional<std::uint32_t> Add(const std::string& answer);
    const std::string& Text() const { return text; }

  private:
    std::vector<std::string> lists;
    std::string text;
    std::uint32_t first = 0;
    int answers = 0;
};

// Asks until nothing is left. `ask` asks for the entries from `first` on. The first answer that fails is
// returned as it is.
ServiceAnswer AskWhole(const std::function<ServiceAnswer(std::uint32_t first)>& ask,
                       const std::vector<std::string>& lists);

}  // namespace vexil
