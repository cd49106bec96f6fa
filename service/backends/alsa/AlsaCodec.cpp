#include "service/backends/alsa/AlsaCodec.h"

#include <new>

#include "service/engine/MidiStatus.h"

namespace vexil {

namespace {

// A piece begins a system exclusive, or goes on with data bytes, or is its end.
bool IsPieceOfExclusive(std::span<const std::uint8_t> bytes) {
    return bytes[0] == kStartOfExclusive || bytes[0] < 0x80 || bytes[0] == kEndOfExclusive;
}

}  // namespace

AlsaCodec::Coder AlsaCodec::MakeCoder() {
    snd_midi_event_t* coder = nullptr;
    if (snd_midi_event_new(kAlsaPieceBytes, &coder) < 0) {
        throw std::bad_alloc();
    }
    snd_midi_event_no_status(coder, 1);
    return Coder(coder);
}

AlsaCodec::AlsaCodec() : decoder(MakeCoder()), encoder(MakeCoder()) {}

AlsaBytes AlsaCodec::Decode(const snd_seq_event_t& event) {
    if (event.type == SND_SEQ_EVENT_SYSEX) {
        // Any other way of giving the length comes with an address that means nothing here.
        if (!snd_seq_ev_is_variable(&event) || event.data.ext.ptr == nullptr) {
            return {};
        }
        return {{static_cast<const std::uint8_t*>(event.data.ext.ptr), event.data.ext.len}, true};
    }
    if (!snd_seq_ev_is_fixed(&event)) {
        return {};
    }
    const long length =
        snd_midi_event_decode(decoder.get(), decoded.data(), static_cast<long>(decoded.size()), &event);
    if (length <= 0) {
        return {};
    }
    return {std::span(decoded).first(static_cast<std::size_t>(length)), false};
}

bool AlsaCodec::Encode(std::span<const std::uint8_t> bytes, snd_seq_event_t& event) {
    if (bytes.empty()) {
        return false;
    }
    snd_seq_ev_clear(&event);
    if (IsPieceOfExclusive(bytes)) {
        event.type = SND_SEQ_EVENT_SYSEX;
        event.flags = SND_SEQ_EVENT_LENGTH_VARIABLE;
        event.data.ext.len = static_cast<unsigned>(bytes.size());
        // The kernel copies the bytes and does not write to them.
        event.data.ext.ptr = const_cast<std::uint8_t*>(bytes.data());
        return bytes.size() <= kAlsaPieceBytes;
    }
    snd_midi_event_reset_encode(encoder.get());
    const long taken =
        snd_midi_event_encode(encoder.get(), bytes.data(), static_cast<long>(bytes.size()), &event);
    return taken == static_cast<long>(bytes.size()) && event.type != SND_SEQ_EVENT_NONE;
}

}  // namespace vexil
