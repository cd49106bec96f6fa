// What the user wants of MIDI between computers (vexil3ctl network): the commands of docs/control-channel.md,
// carried out on a NetworkService. Control thread.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "service/NetworkService.h"
#include "service/control/NetworkAnswers.h"

namespace vexil {

class NetworkCommands {
  public:
    explicit NetworkCommands(NetworkService& itsService) : service(itsService) {}

    // A command and what it needs. The answer is JSON text: what was asked for, {"done": ...} or
    // {"problem": ...}.
    std::string Run(const std::vector<std::string>& words);

  private:
    using KnownKey = RefusedKey;

    std::string List(const std::string& first) const;
    std::vector<NetworkComputer> Computers(const AccessList& access, const RemoteStatus& status) const;
    std::string Speak(const std::string& where);
    std::string Pin(const std::string& name, const std::string& key);
    std::string Forget(const std::string& name);
    std::string Block(const std::string& nameOrKey);
    std::string Unblock(const std::string& nameOrKey);
    std::string SetSecret(const std::optional<std::string>& secret);
    std::string Allow(const std::string& who);
    std::string SetRtp(const std::string& onOrOff);
    std::string MakeNewKey();

    std::vector<KnownKey> KnownKeys() const;
    // Those that have a name, or whose short form begins with a text of at least 4 digits.
    std::vector<KnownKey> Named(const std::string& nameOrKey) const;
    // What is remembered of others, to be changed.
    AccessRules StoredAccess() const;
    // Stores it and has the network take it up. The sentence, or why it could not be stored.
    std::string StoreAccess(const AccessRules& access, const std::string& done);

    NetworkService& service;
};

}  // namespace vexil
