#include "service/control/StoreWatch.h"

#include <algorithm>

#include "shared/System/Deadline.h"

namespace vexil {

int StoreWatch::Timeout() const {
    std::optional<Milliseconds> soonest = parts.lookAgainIn();
    if (lookAt) {
        const Milliseconds left(MillisecondsUntil(*lookAt, parts.now()));
        soonest = soonest ? std::min(*soonest, left) : left;
    }
    return soonest ? static_cast<int>(std::max<Milliseconds::rep>(soonest->count(), 0)) : -1;
}

void StoreWatch::Serve() {
    if (parts.watch.Take()) {
        lookAt = parts.now() + kQuiet;
    }
    if (Timeout() == 0) {
        lookAt.reset();
        parts.look();
    }
}

}  // namespace vexil
