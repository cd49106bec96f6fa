// How much the engine may do before it gives way. A seam: who drives the engine knows its own time.
#pragma once

namespace vexil {

class TurnLimit {
  public:
    virtual ~TurnLimit() = default;
    // Whether the turn may go on. Asked now and then, each time after some work; once false it stays false
    // for this turn. Engine thread.
    virtual bool MayGoOn() = 0;
};

}  // namespace vexil
