// The kernel control in memory as a subject of its contract, and as the base of those around it.
#pragma once

#include <cstdint>
#include <utility>
#include <vector>

#include "tests/doubles/KernelControlContract.h"
#include "tests/doubles/MemoryKernelControl.h"

namespace vexil {

class MemoryKernelSubject {
  public:
    KernelControl& Control() { return memory; }
    void SetHostInfos(std::vector<std::uint8_t> bytes) { memory.hostInfos = std::move(bytes); }
    void RemoveDriver() { memory.driverPresent = false; }
    std::vector<AcceptedOption> Accepted() {
        std::vector<AcceptedOption> accepted;
        for (const KernelCall& call : memory.OptionCalls()) {
            accepted.emplace_back(call.option, call.bytes);
        }
        return accepted;
    }

  protected:
    MemoryKernelControl memory;
};

}  // namespace vexil
