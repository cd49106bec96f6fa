#include "shared/System/StandardStreams.h"

#include <fcntl.h>
#include <unistd.h>

namespace vexil {

void HoldStandardStreams() {
    for (int stream = STDIN_FILENO; stream <= STDERR_FILENO; ++stream) {
        // The lowest free number is the one that is closed. Without /dev/null there is nothing to hold it
        // with, and nobody to tell.
        if (fcntl(stream, F_GETFD) == -1) {
            static_cast<void>(open("/dev/null", stream == STDIN_FILENO ? O_WRONLY : O_RDONLY));
        }
    }
}

}  // namespace vexil
