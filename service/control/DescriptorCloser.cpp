#include "service/control/DescriptorCloser.h"

#include <condition_variable>
#include <deque>
#include <mutex>
#include <system_error>
#include <thread>
#include <utility>

namespace vexil {

struct DescriptorCloser::Queue {
    std::mutex mutex;  // guards all below
    std::condition_variable changed;
    std::deque<Descriptor> waiting;
    bool isClosing = false;
    bool hasEnded = false;
};

DescriptorCloser::DescriptorCloser() : queue(std::make_shared<Queue>()) {}

DescriptorCloser::~DescriptorCloser() {
    const std::lock_guard lock(queue->mutex);
    queue->hasEnded = true;
    queue->changed.notify_one();
}

void DescriptorCloser::Close(Descriptor descriptor) {
    if (!hasThread) {
        try {
            std::thread([shared = queue] { Work(*shared); }).detach();
            hasThread = true;
        } catch (const std::system_error&) {
            return;  // closes it
        }
    }
    const std::lock_guard lock(queue->mutex);
    queue->waiting.push_back(std::move(descriptor));
    queue->changed.notify_one();
}

bool DescriptorCloser::IsBusy() const {
    const std::lock_guard lock(queue->mutex);
    return queue->isClosing || !queue->waiting.empty();
}

void DescriptorCloser::Work(Queue& queue) {
    std::unique_lock lock(queue.mutex);
    for (;;) {
        queue.changed.wait(lock, [&queue] { return queue.hasEnded || !queue.waiting.empty(); });
        if (queue.waiting.empty()) {
            return;
        }
        Descriptor descriptor = std::move(queue.waiting.front());
        queue.waiting.pop_front();
        queue.isClosing = true;
        lock.unlock();
        descriptor.Close();
        lock.lock();
        queue.isClosing = false;
    }
}

}  // namespace vexil
