// The preferences of a program with a window, which has to tell a person once that they cannot be stored:
// values that fail for the same reason are summed up until somebody asks, where each would be a line in the
// log.
//
// One thread.
#pragma once

#include <cstddef>
#include <functional>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "config/PreferenceDomains.h"
#include "platform/linux/Paths.h"
#include "platform/linux/preferences/DurableFile.h"
#include "platform/linux/preferences/PlistPreferenceDomains.h"

namespace vexil {

class SummedPreferenceDomains : public PreferenceDomains {
  public:
    explicit SummedPreferenceDomains(const Paths& folders,
                                     const DurabilityCalls& durabilityCalls = SystemDurabilityCalls());

    PropertyRef CopyValue(const std::string& key, const std::string& application, UserScope user,
                          HostScope host) override;
    void SetValue(const std::string& key, PropertyRef value, const std::string& application, UserScope user,
                  HostScope host) override;
    bool Synchronize(const std::string& application, UserScope user, HostScope host) override;

    // Called after the first value of a sum has failed. It may end the sum.
    void SetFailureCame(std::function<void()> call) { failureCame = std::move(call); }

    // Called when a setting of a person's is stored, the first time after EndSum has returned a reason.
    void SetStoredAgain(std::function<void()> call) { storedAgain = std::move(call); }

    // Writes one line to the log for each reason, with the number of values, and begins anew. Returns a
    // reason for which a person's settings were not stored, empty when all were stored: the list of computers
    // that is kept for the next start is not theirs.
    std::string EndSum();

  private:
    struct Failure {
        std::string line;
        std::size_t values = 0;
        bool isOfPerson = false;
    };

    void Add(const std::string& line, const std::vector<std::string>& keys);
    void NoteStored(const std::vector<std::string>& keys);

    PlistPreferenceDomains domains;
    std::function<void()> failureCame;
    std::function<void()> storedAgain;
    bool isUnstored = false;  // nothing of a person's was stored since EndSum returned a reason
    std::map<std::pair<std::string, UserScope>, std::vector<std::string>> changed;  // keys, by domain
    bool holdsLines = false;
    std::vector<std::string> lines;  // of the write under way
    std::vector<Failure> failures;
};

}  // namespace vexil
