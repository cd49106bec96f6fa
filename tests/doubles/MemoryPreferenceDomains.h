// Preference domains in memory. The stored domains live in a MemoryPreferenceStorage, which stands for the
// disk: any number of MemoryPreferenceDomains may look at one storage, as several programs look at the same
// files.
//
// A MemoryPreferenceDomains also keeps the list of what was asked of it, in order.
#pragma once

#include <cstddef>
#include <map>
#include <memory>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "config/PreferenceDomains.h"

namespace vexil {

// One domain's address.
struct PreferenceDomainId {
    std::string application;
    UserScope user;
    HostScope host;

    auto operator<=>(const PreferenceDomainId&) const = default;
};

struct MemoryPreferenceStorage {
    std::map<PreferenceDomainId, PropertyDictionary> domains;
    // While false, no Synchronize succeeds.
    bool writable = true;
};

class MemoryPreferenceDomains : public PreferenceDomains {
  public:
    // One SetValue as it was asked for.
    struct Change {
        std::string key;
        PropertyRef value;  // null: removed
        PreferenceDomainId domain;
    };

    explicit MemoryPreferenceDomains(
        std::shared_ptr<MemoryPreferenceStorage> sharedStorage = std::make_shared<MemoryPreferenceStorage>())
        : storage(std::move(sharedStorage)) {}

    PropertyRef CopyValue(const std::string& key, const std::string& application, UserScope user,
                          HostScope host) override {
        View& view = Open({application, user, host});
        const auto found = view.values.find(key);
        return found == view.values.end() ? nullptr : found->second;
    }

    void SetValue(const std::string& key, PropertyRef value, const std::string& application, UserScope user,
                  HostScope host) override {
        const PreferenceDomainId id{application, user, host};
        changes.push_back({key, value, id});
        View& view = Open(id);
        Assign(view.values, key, value);
        view.pending.emplace_back(key, std::move(value));
    }

    bool Synchronize(const std::string& application, UserScope user, HostScope host) override {
        const PreferenceDomainId id{application, user, host};
        synchronized.push_back(id);
        View& view = Open(id);
        if (storage->writable && !view.pending.empty()) {
            for (const auto& [key, value] : view.pending) {
                Assign(storage->domains[id], key, value);
            }
        }
        view.pending.clear();
        const PropertyDictionary& stored = Stored(id);
        if (view.values != stored) {
            view.values = stored;
        }
        return storage->writable;
    }

    // Every SetValue since construction or the last Forget, in order.
    const std::vector<Change>& Changes() const { return changes; }
    // The domain of every Synchronize since then, in order.
    const std::vector<PreferenceDomainId>& Synchronized() const { return synchronized; }
    void Forget() {
        changes.clear();
        synchronized.clear();
    }

    MemoryPreferenceStorage& Storage() { return *storage; }

  private:
    // A domain as this object sees it: what it read last, with its own changes since.
    struct View {
        PropertyDictionary values;
        std::vector<std::pair<std::string, PropertyRef>> pending;
    };

    const PropertyDictionary& Stored(const PreferenceDomainId& id) const {
        static const PropertyDictionary kNothing;
        const auto found = storage->domains.find(id);
        return found == storage->domains.end() ? kNothing : found->second;
    }

    View& Open(const PreferenceDomainId& id) {
        const auto [place, isNew] = views.try_emplace(id);
        if (isNew) {
            place->second.values = Stored(id);
        }
        return place->second;
    }

    static void Assign(PropertyDictionary& values, const std::string& key, const PropertyRef& value) {
        if (value == nullptr) {
            values.erase(key);
        } else {
            values[key] = value;
        }
    }

    std::shared_ptr<MemoryPreferenceStorage> storage;
    std::map<PreferenceDomainId, View> views;
    std::vector<Change> changes;
    std::vector<PreferenceDomainId> synchronized;
};

}  // namespace vexil
