// A resolver around another that fails on demand, in the way of a system without room for one more look-up.
#pragma once

#include <optional>
#include <string>

#include "service/network/Resolver.h"

namespace vexil {

class FaultyResolver : public Resolver {
  public:
    // `wrappedResolver` must outlive this object.
    explicit FaultyResolver(Resolver& wrappedResolver) : wrapped(wrappedResolver) {}

    void Fail(bool on) { failing = on; }

    int EventDescriptor() const override { return wrapped.EventDescriptor(); }
    bool Begin(std::uint64_t ticket, const std::string& name) override {
        return !failing && wrapped.Begin(ticket, name);
    }
    std::optional<ResolverAnswer> Take() override { return wrapped.Take(); }

  private:
    Resolver& wrapped;
    bool failing = false;
};

}  // namespace vexil
