// What every console does, and what that of the standard streams does besides.
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <memory>

#include "ctl/StandardConsole.h"
#include "tests/ctl/ScriptedConsole.h"

namespace vexil {
namespace {

using namespace std::chrono_literals;

// A console, with what its person gives it and sees.
class ConsoleBed {
  public:
    virtual ~ConsoleBed() = default;
    virtual Console& Get() = 0;
    virtual void Give(const std::string& lines) = 0;  // and the end of the input
    virtual std::string Seen() = 0;
};

class Pipe {
  public:
    Pipe() { EXPECT_EQ(0, pipe(ends)); }
    ~Pipe() {
        close(ends[0]);
        CloseWriting();
    }
    Pipe(const Pipe&) = delete;
    Pipe& operator=(const Pipe&) = delete;
    void CloseWriting() {
        if (ends[1] != -1) {
            close(ends[1]);
        }
        ends[1] = -1;
    }
    int Reading() const { return ends[0]; }
    int Writing() const { return ends[1]; }

  private:
    int ends[2] = {-1, -1};
};

class StandardBed : public ConsoleBed {
  public:
    Console& Get() override { return console; }
    void Give(const std::string& lines) override {
        EXPECT_EQ(0, WriteAll(input.Writing(), lines));
        input.CloseWriting();
    }
    std::string Seen() override {
        std::string text(4096, '\0');
        const ssize_t size = read(output.Reading(), text.data(), text.size());
        text.resize(size > 0 ? static_cast<std::size_t>(size) : 0);
        return text;
    }

  private:
    Pipe input;
    Pipe output;
    StandardConsole console{input.Reading(), output.Writing()};
};

class ScriptedBed : public ConsoleBed {
  public:
    Console& Get() override { return console; }
    void Give(const std::string& lines) override {
        console.input = lines;
        for (std::size_t start = 0; start < lines.size();) {
            const std::size_t end = std::min(lines.find('\n', start), lines.size());
            console.lines.push_back(lines.substr(start, end - start));
            start = end + 1;
        }
    }
    std::string Seen() override {
        std::string text;
        for (const std::string& each : console.shown) {
            text += each;
        }
        return text;
    }

  private:
    ScriptedConsole console;
};

template <class Bed>
class ConsoleContract : public testing::Test {
  protected:
    Bed bed;
    Console& console = bed.Get();
};
using Beds = testing::Types<StandardBed, ScriptedBed>;
TYPED_TEST_SUITE(ConsoleContract, Beds);

TYPED_TEST(ConsoleContract, ShowsWhatItIsGivenInItsOrder) {
    EXPECT_EQ(0, this->console.Show("a\n"));
    EXPECT_EQ(0, this->console.Show("b"));
    EXPECT_EQ("a\nb", this->bed.Seen());
    EXPECT_FALSE(this->console.CanRedraw());
}

TYPED_TEST(ConsoleContract, ReadsLineByLineToTheEndOfTheInput) {
    this->bed.Give("one\n\nlast");
    EXPECT_FALSE(this->console.IsTyped());
    EXPECT_EQ("one", this->console.ReadHiddenLine("? "));
    EXPECT_EQ("", this->console.ReadHiddenLine("? "));
    EXPECT_EQ("last", this->console.ReadHiddenLine("? "));
    EXPECT_EQ(std::nullopt, this->console.ReadHiddenLine("? "));
}

TYPED_TEST(ConsoleContract, ReadsAllToTheEndOfTheInput) {
    this->bed.Give("one\n\nlast");
    EXPECT_EQ("one\n\nlast", this->console.ReadAll(9));
}

TYPED_TEST(ConsoleContract, ReadsNothingOfWhatIsTooMuch) {
    this->bed.Give("one\n\nlast");
    EXPECT_EQ(std::nullopt, this->console.ReadAll(8));
}

TYPED_TEST(ConsoleContract, AWaitTakesItsTime) {
    const Console::Clock::time_point before = this->console.Now();
    EXPECT_TRUE(this->console.Wait(20ms));
    EXPECT_GE(this->console.Now() - before, 20ms);
}

TYPED_TEST(ConsoleContract, WaitsUntilADescriptorIsReadableOrTheTimeIsOver) {
    Pipe pipe;
    EXPECT_EQ(Console::Woken::Time, this->console.WaitFor(pipe.Reading(), 1ms));
    ASSERT_EQ(0, WriteAll(pipe.Writing(), "x"));
    EXPECT_EQ(Console::Woken::Ready, this->console.WaitFor(pipe.Reading(), std::nullopt));
}

TEST(StandardConsole, AnInterruptThatIsHeldEndsTheWait) {
    StandardBed bed;
    sigset_t before{};
    pthread_sigmask(SIG_SETMASK, nullptr, &before);
    bed.Get().HoldInterrupts();
    EXPECT_TRUE(bed.Get().Wait(1ms));
    kill(getpid(), SIGINT);
    EXPECT_EQ(Console::Woken::Interrupt, bed.Get().WaitFor(-1, std::nullopt));
    EXPECT_FALSE(bed.Get().Wait(1h));
    // It takes no effect any more: the mask is the process's.
    signal(SIGINT, SIG_IGN);
    signal(SIGINT, SIG_DFL);
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

TEST(StandardConsole, ALineIsNotEndless) {
    StandardBed bed;
    Pipe input;
    StandardConsole console(input.Reading(), STDOUT_FILENO);
    ASSERT_EQ(0, WriteAll(input.Writing(), std::string(65536, 'x')));  // all that a pipe holds
    input.CloseWriting();
    EXPECT_EQ(65536U, console.ReadHiddenLine("").value_or("").size());
}

TEST(StandardConsole, WhatCannotBeShownGivesTheReason) {
    Pipe input;
    StandardConsole console(input.Reading(), -1);
    EXPECT_EQ(EBADF, console.Show("a"));
}

}  // namespace
}  // namespace vexil
