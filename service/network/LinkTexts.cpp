#include "service/network/LinkTexts.h"

#include "config/DriverConfiguration.h"

namespace vexil {

namespace {

std::string Quoted(const std::string& name) {
    return "\"" + name + "\"";
}

std::string RefusalText(const LinkPeerState& state, const std::string& name) {
    const std::string who = Quoted(name);
    const bool there = state.refusedThere;
    switch (state.refusal) {
        case Refusal::NotAllowed:
            return there ? who + " does not let this computer in."
                         : "This computer does not let " + who + " in.";
        case Refusal::OtherKey:
            return there ? who +
                               " knows this computer by another key; \"vexil3ctl network pin\" over there "
                               "accepts "
                               "the new one."
                         : "Another key than before answers as " + who +
                               "; \"vexil3ctl network pin\" accepts the new one.";
        case Refusal::SecretNeeded:
            return there ? who + " wants a secret, and none is set here."
                         : "This computer wants a secret, and none is set on " + who + ".";
        case Refusal::SecretWrong:
            return "Another secret is set on " + who + ".";
        case Refusal::OtherVersion:
            return who + " speaks another version of the link.";
        case Refusal::SameKey:
            return who +
                   " uses the key of this computer; \"vexil3ctl network new-key\" on one of them makes "
                   "another one.";
        case Refusal::TooMany:
            return there ? who + " has no room for another computer."
                         : "There is no room for another computer.";
        case Refusal::None:
            break;
    }
    return who + " does not let this computer in.";
}

}  // namespace

const char* StateText(LinkPeerState::Kind kind) {
    switch (kind) {
        case LinkPeerState::Kind::Calling:
            return "calling";
        case LinkPeerState::Kind::Up:
            return "up";
        case LinkPeerState::Kind::Lost:
        case LinkPeerState::Kind::Unheard:
            return "lost";
        case LinkPeerState::Kind::Ended:
            return "ended";
        case LinkPeerState::Kind::Refused:
            return "refused";
        case LinkPeerState::Kind::Searching:
            break;
    }
    return "searching";
}

const char* NeedsText(const LinkPeerState& state) {
    if (state.kind != LinkPeerState::Kind::Refused) {
        return "";
    }
    const bool isSecret = state.refusal == Refusal::SecretWrong ||
                          (state.refusal == Refusal::SecretNeeded && state.refusedThere);
    if (isSecret) {
        return "secret";
    }
    return state.refusal == Refusal::OtherKey && !state.refusedThere ? "key" : "";
}

std::string ConnectionProblemText(const LinkPeerState& state, const std::string& name) {
    switch (state.kind) {
        case LinkPeerState::Kind::Up:
            return "";
        case LinkPeerState::Kind::Calling:
            return "The computer " + Quoted(name) +
                   (state.silent ? " does not answer." : " is being called.");
        case LinkPeerState::Kind::Lost:
            return "The computer " + Quoted(name) + " is no longer heard.";
        case LinkPeerState::Kind::Unheard:
            return "The computer " + Quoted(name) + " no longer hears this one.";
        case LinkPeerState::Kind::Ended:
            return state.isSession ? "The session " + Quoted(name) + " has ended."
                                   : "Vexil III has ended on the computer " + Quoted(name) + ".";
        case LinkPeerState::Kind::Refused:
            return RefusalText(state, name);
        case LinkPeerState::Kind::Searching:
            break;
    }
    return "The computer " + Quoted(name) + " is being looked for.";
}

bool IsPassing(const LinkPeerState& state) {
    return state.kind == LinkPeerState::Kind::Searching ||
           (state.kind == LinkPeerState::Kind::Calling && !state.silent);
}

std::string WayProblemText(WayProblem problem, const std::string& name, int port, bool isSession) {
    if (isSession && problem == WayProblem::TargetPortUnused) {
        return Quoted(name) + " has one port, " + std::to_string(ShownPortNumber(0)) + ".";
    }
    const std::string there = "Port " + std::to_string(ShownPortNumber(port)) + " of " + Quoted(name);
    switch (problem) {
        case WayProblem::None:
            return "";
        case WayProblem::TargetPortUnused:
            return Quoted(name) + " has no port " + std::to_string(ShownPortNumber(port)) + ".";
        case WayProblem::TargetNotInput:
            return there + " is not enabled as MIDI IN.";
        case WayProblem::TargetIsPipe:
            return there + " is a local pipe, which hears only itself.";
        case WayProblem::WrongSourceComputer:
            return there + " listens to another computer.";
        case WayProblem::WrongSourcePort:
            return there + " listens to another port.";
        case WayProblem::TooManyWays:
            return Quoted(name) + " takes no more ways.";
        case WayProblem::PortBusy:
            return there + " is in other hands at the moment.";
    }
    return there + " does not take what is sent to it.";
}

}  // namespace vexil
