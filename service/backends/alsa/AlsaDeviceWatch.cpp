#include "service/backends/alsa/AlsaDeviceWatch.h"

#include <sys/inotify.h>
#include <unistd.h>

#include <array>
#include <cstddef>
#include <string_view>

namespace vexil {

namespace {

constexpr const char* kParent = "/dev";
constexpr const char* kFolder = "/dev/snd";
constexpr std::string_view kFolderName = "snd";
constexpr std::string_view kDeviceName = "seq";

}  // namespace

AlsaDeviceWatch::AlsaDeviceWatch() : events(::inotify_init1(IN_CLOEXEC | IN_NONBLOCK)) {
    Watch();
}

void AlsaDeviceWatch::Watch() {
    if (folder < 0) {
        folder = ::inotify_add_watch(events.Number(), kFolder,
                                     IN_CREATE | IN_DELETE | IN_MOVED_TO | IN_MOVED_FROM | IN_ATTRIB);
    }
    if (folder < 0 && parent < 0) {
        parent = ::inotify_add_watch(events.Number(), kParent, IN_CREATE | IN_MOVED_TO);
        // It may have come in between.
        folder = ::inotify_add_watch(events.Number(), kFolder,
                                     IN_CREATE | IN_DELETE | IN_MOVED_TO | IN_MOVED_FROM | IN_ATTRIB);
    }
    if (folder >= 0 && parent >= 0) {
        ::inotify_rm_watch(events.Number(), parent);
        parent = -1;
    }
}

bool AlsaDeviceWatch::Take() {
    bool changed = false;
    alignas(inotify_event) std::array<char, 4096> buffer;
    for (;;) {
        const ssize_t size = ::read(events.Number(), buffer.data(), buffer.size());
        if (size <= 0) {
            break;
        }
        for (std::size_t at = 0; at < static_cast<std::size_t>(size);) {
            const auto* event = static_cast<const inotify_event*>(static_cast<const void*>(&buffer[at]));
            at += sizeof *event + event->len;
            const std::string_view name = event->len > 0 ? event->name : "";
            if ((event->mask & IN_IGNORED) != 0 && event->wd == folder) {
                folder = -1;
            }
            changed = changed || (event->mask & (IN_IGNORED | IN_Q_OVERFLOW)) != 0 || name == kDeviceName ||
                      name == kFolderName;
        }
    }
    Watch();
    return changed;
}

bool AlsaDeviceWatch::IsThere() const {
    return ::access(kAlsaDevice, F_OK) == 0;
}

}  // namespace vexil
