// What every back end must do, on the ALSA sequencer.
#include "tests/doubles/MidiBackendContract.h"
#include "tests/service/backends/alsa/AlsaSubject.h"

namespace vexil {
namespace {

INSTANTIATE_TYPED_TEST_SUITE_P(Alsa, MidiBackendContract, AlsaSubject);
INSTANTIATE_TYPED_TEST_SUITE_P(Alsa, MidiTransportContract, AlsaSubject);

}  // namespace
}  // namespace vexil
