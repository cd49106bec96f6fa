// The ALSA back end of a machine that belongs to the test: it takes the sequencer's device away.
#pragma once

#include <gtest/gtest.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <memory>
#include <thread>
#include <vector>

#include "service/backends/alsa/AlsaBackend.h"
#include "tests/service/backends/alsa/AlsaProgram.h"

namespace vexil {

class AlsaSubject {
  public:
    ~AlsaSubject() { ReturnSystem(); }

    void SetUp() {
        if (::access(kDevice, R_OK | W_OK) != 0) {
            GTEST_SKIP() << "no ALSA sequencer on this machine (" << kDevice << ")";
        }
    }
    MidiBackend& Backend() { return backend; }
    void Step() {
        for (const std::weak_ptr<AlsaProgram>& program : programs) {
            if (const std::shared_ptr<AlsaProgram> open = program.lock()) {
                open->Pump();
            }
        }
        pollfd event{backend.EventDescriptor(), POLLIN, 0};
        if (::poll(&event, 1, 1) > 0 || backend.EventTimeout() == 0) {
            backend.HandleEvents();
        }
    }
    std::unique_ptr<MidiProgram> NewProgram() {
        auto program = std::make_shared<AlsaProgram>();
        programs.push_back(program);
        return std::make_unique<Handle>(program);
    }
    void LoseSystem() { std::rename(kDevice, kAway); }
    void ReturnSystem() {
        if (::access(kAway, F_OK) == 0) {
            std::rename(kAway, kDevice);
        }
    }

  private:
    static constexpr const char* kDevice = "/dev/snd/seq";
    static constexpr const char* kAway = "/dev/snd/seq.away";

    // What a test holds; the subject sees when it is gone.
    class Handle : public MidiProgram {
      public:
        explicit Handle(std::shared_ptr<AlsaProgram> held) : program(std::move(held)) {}
        ~Handle() override { program->Pump(); }
        Handle(const Handle&) = delete;
        Handle& operator=(const Handle&) = delete;
        std::vector<std::string> Listed(bool outputs) override { return program->Listed(outputs); }
        bool WriteTo(const std::string& address) override { return program->WriteTo(address); }
        bool ReadFrom(const std::string& address) override { return program->ReadFrom(address); }
        void Disconnect() override {
            program->Pump();
            program->Disconnect();
        }
        // Leaves in Step, so that a reader is never left without a turn for long.
        void Write(const Bytes& bytes) override { program->Queue(bytes); }
        Bytes Read() override { return program->Read(); }

      private:
        std::shared_ptr<AlsaProgram> program;
    };

    AlsaBackend backend;
    std::vector<std::weak_ptr<AlsaProgram>> programs;
};

}  // namespace vexil
