// How a key that is held down repeats.
#pragma once

namespace vexil {

// While an object of this class lives, a key that is held comes as one press after another and a single
// release at its end, on X11 too. Otherwise the display server sends a release and a press for every
// repetition there, and the toolkit takes such a release for the real one whenever the press has not arrived
// yet.
//
// The toolkit does not mark these presses as repetitions. One object at a time; without X11 it does nothing.
class HeldKeyWithoutReleases {
  public:
    HeldKeyWithoutReleases();
    ~HeldKeyWithoutReleases();
    HeldKeyWithoutReleases(const HeldKeyWithoutReleases&) = delete;
    HeldKeyWithoutReleases& operator=(const HeldKeyWithoutReleases&) = delete;
};

}  // namespace vexil
