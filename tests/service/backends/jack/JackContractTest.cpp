#include "tests/doubles/MidiBackendContract.h"
#include "tests/service/backends/jack/JackSubject.h"

namespace vexil {
namespace {

INSTANTIATE_TYPED_TEST_SUITE_P(Jack, MidiBackendContract, JackSubject);
INSTANTIATE_TYPED_TEST_SUITE_P(Jack, MidiTransportContract, JackSubject);

}  // namespace
}  // namespace vexil
