// A folder /dev/shm of this process's own, for it and the programs that it starts. JACK keeps there what all
// JACK programs of a user share, and above all the properties of ports, in one database for all servers: a
// program that is killed while it has a lock of that database leaves the lock behind, and from then on every
// server and every program of this user waits for it without end. So what a test kills must not meet what
// others use, nor what the next test finds.
#pragma once

namespace vexil {

// Before there is a second thread. False where the system does not allow it: everything goes on as it was.
bool TakeOwnSharedMemory();
// Whether that has succeeded.
bool HasOwnSharedMemory();

}  // namespace vexil
