// The standard streams of a program that was started without some of them.
#pragma once

namespace vexil {

// Gives each of the descriptors 0, 1 and 2 that is closed to /dev/null, opened against its direction: reading
// and writing fail there as they would have. Otherwise the next file or connection that is opened would get
// the number, and with it the lines that are meant for a stream. To be called before anything else is opened.
void HoldStandardStreams();

}  // namespace vexil
