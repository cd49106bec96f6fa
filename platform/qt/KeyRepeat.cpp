#include "platform/qt/KeyRepeat.h"

#include <QGuiApplication>

// Last: it defines words such as None and KeyPress.
#include <X11/XKBlib.h>

namespace vexil {

namespace {

// The display asks the server for the repetitions of its own connection alone.
void AskForReleases(bool withReleases) {
    const auto* x11 = qGuiApp->nativeInterface<QNativeInterface::QX11Application>();
    if (x11 != nullptr && x11->display() != nullptr) {
        XkbSetDetectableAutoRepeat(x11->display(), withReleases ? 0 : 1, nullptr);
    }
}

}  // namespace

HeldKeyWithoutReleases::HeldKeyWithoutReleases() {
    AskForReleases(false);
}

HeldKeyWithoutReleases::~HeldKeyWithoutReleases() {
    AskForReleases(true);
}

}  // namespace vexil
