#include "service/network/DatagramSocket.h"

namespace vexil {

const char* SendResultText(SendResult result) {
    switch (result) {
        case SendResult::Sent:
            return "it was sent";
        case SendResult::Full:
            return "the system has no room to send at the moment";
        case SendResult::TooLong:
            return "the datagram is too long for the way to that address";
        case SendResult::Unreachable:
            return "there is no way to that address";
        case SendResult::NotAllowed:
            return "this computer does not allow sending to that address";
        case SendResult::Failed:
            break;
    }
    return "the system cannot send";
}

}  // namespace vexil
