// What status tells of the connections to other computers.
#pragma once

#include <string>
#include <vector>

namespace vexil {

// What one port plays to an input of the other computer, or hears from there.
struct RemoteWay {
    int from = 0;           // port that plays: here, or there when it is incoming; 0 to 63
    int to = 0;             // port whose input is meant
    bool incoming = false;  // from the other computer
    bool test = false;      // it is the test output of `from`
    std::string problem;    // why nothing of it is heard; else empty
};

struct RemoteSession {
    std::string computer;
    bool up = false;
    std::string problem;  // why it is not up; else empty
    std::vector<RemoteWay> ways;
};

}  // namespace vexil
