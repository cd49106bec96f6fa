// Descriptors that a client passes with its packets, which the control channel has no use for.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <span>

#include "service/control/DescriptorCloser.h"

namespace vexil {

// Lets the kernel refuse them, at this socket and at all that are accepted from it: who passes one gets
// EPERM. False where the kernel cannot (before Linux 6.16).
bool RefusePassedDescriptors(int socket);

// Whether the next packet carries some. They are not taken.
bool NextCarriesDescriptors(int connection);

// One packet, as recv with MSG_TRUNC; what it carries is for `closer` to close.
ssize_t ReceiveWithoutDescriptors(int connection, std::span<std::uint8_t> packet, DescriptorCloser& closer);

// Closes a connection. Where packets that nobody has read carry descriptors, `closer` does it, as they are
// closed with the connection; the client sees the end at once.
void CloseConnection(Descriptor connection, DescriptorCloser& closer);

}  // namespace vexil
