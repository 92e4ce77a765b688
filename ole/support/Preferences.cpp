#include "support/Preferences.h"

#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "Qz/Utf8.h"
#include "support/Log.h"
#include "support/PreferenceStore.h"
#include "support/UserFolders.h"

namespace {

struct PreferenceState
{
    std::mutex lock;
    std::optional<PreferenceStore> store;
};

// Never destroyed: static destructors may ask.
PreferenceState& theState()
{
    static auto* state = new PreferenceState;
    return *state;
}

std::string preferencesFile()
{
    const std::string named = environmentText("FSYS_PREFS");
    return named.empty() ? userFile("XDG_CONFIG_HOME", ".config", "fsys/preferences") : named;
}

// Runs action on the store under its lock. The first call reads the file; what it has to say goes to the
// log after the lock is released, because a log sink may ask for preferences.
template <class Action>
auto withStore(Action action)
{
    PreferenceState& state = theState();
    std::unique_lock guard(state.lock);
    std::vector<std::string> complaints;
    std::string path;
    if (!state.store) {
        path = preferencesFile();
        complaints = state.store.emplace(fromUTF8(path.c_str())).complaints();
    }
    auto result = action(*state.store);
    guard.unlock();
    for (const std::string& complaint : complaints)
        Log("Preferences %s: %s\n", path.c_str(), complaint.c_str());
    return result;
}

}  // namespace

LightweightString<wchar_t>
EditorPreferences::getPreference(const LightweightString<char>& key,
                                 const LightweightString<wchar_t>& defaultValue) const
{
    return withStore([&](const PreferenceStore& store) {
        const std::string* value = store.find(key.view());
        return value ? fromUTF8(std::string_view(*value)) : defaultValue;
    });
}

bool EditorPreferences::setPreference(const LightweightString<char>& key,
                                      const LightweightString<wchar_t>& value)
{
    return withStore([&](PreferenceStore& store) { return store.set(key.view(), toUTF8(value).view()); });
}

bool EditorPreferences::removePreference(const LightweightString<char>& key)
{
    return withStore([&](PreferenceStore& store) { return store.remove(key.view()); });
}

EditorPreferences& prefs()
{
    static auto* preferences = new EditorPreferences;
    return *preferences;
}
