#include "platform/qt/WaitInEventLoop.h"

#include <poll.h>

#include <QEventLoop>
#include <QSocketNotifier>
#include <QTimer>

namespace vexil {

void WaitInEventLoop(int descriptor, short events, std::chrono::milliseconds atMost) {
    QEventLoop loop;
    QSocketNotifier readable(descriptor, QSocketNotifier::Read);
    QSocketNotifier writable(descriptor, QSocketNotifier::Write);
    readable.setEnabled((events & POLLIN) != 0);
    writable.setEnabled((events & POLLOUT) != 0);
    QObject::connect(&readable, &QSocketNotifier::activated, &loop, &QEventLoop::quit);
    QObject::connect(&writable, &QSocketNotifier::activated, &loop, &QEventLoop::quit);
    QTimer::singleShot(atMost, &loop, &QEventLoop::quit);
    loop.exec();
}

}  // namespace vexil
