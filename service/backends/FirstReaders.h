// Who hears what an earlier service may have left sounding.
#pragma once

namespace vexil {

// Programs that are connected to an input within this time after the first one are its first readers.
inline constexpr int kFirstReadersMilliseconds = 300;

}  // namespace vexil
