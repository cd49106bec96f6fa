// A watch around another that fails on demand, in the way a system without room for one fails: it tells
// nothing.
#pragma once

#include "platform/linux/preferences/PreferenceWatch.h"

namespace vexil {

class FaultyPreferenceWatch : public PreferenceWatch {
  public:
    // `wrappedWatch` must outlive this object.
    explicit FaultyPreferenceWatch(PreferenceWatch& wrappedWatch) : wrapped(wrappedWatch) {}

    void Fail(bool on) { failing = on; }

    int EventDescriptor() const override { return failing ? -1 : wrapped.EventDescriptor(); }
    bool Take() override { return !failing && wrapped.Take(); }

  private:
    PreferenceWatch& wrapped;
    bool failing = false;
};

}  // namespace vexil
