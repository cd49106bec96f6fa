// The system's resolver (getaddrinfo), each look-up on a thread of its own, since none of them can be ended.
// Nobody waits for them: not who asks, not who destroys the resolver, and not the end of the process.
#pragma once

#include <functional>
#include <memory>
#include <vector>

#include "service/network/Resolver.h"

namespace vexil {

class SystemResolver : public Resolver {
  public:
    // What looks one name up, on any thread; as the system does it, or as a test has it.
    using LookUp = std::function<std::vector<NetworkAddress>(const std::string& name)>;
    // Look-ups that may hang at once; beyond them Begin is refused.
    static constexpr int kMostThreads = 16;

    SystemResolver();
    explicit SystemResolver(LookUp how);
    ~SystemResolver() override;
    SystemResolver(const SystemResolver&) = delete;
    SystemResolver& operator=(const SystemResolver&) = delete;

    int EventDescriptor() const override;
    bool Begin(std::uint64_t ticket, const std::string& name) override;
    std::optional<ResolverAnswer> Take() override;

  private:
    struct Answers;
    std::shared_ptr<Answers> answers;  // outlives the resolver while a look-up is under way
    LookUp lookUp;
};

}  // namespace vexil
