#include "support/ConfigInt.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <set>
#include <string>

#include "support/ConfigStore.h"
#include "support/UserFolders.h"

namespace {

std::atomic<ConfigObserver> theObserver{nullptr};

ConfigStore* loadStore()
{
    auto* store = new ConfigStore;
    const std::string named = environmentText("FSYS_CONFIG");
    if (!named.empty()) {
        store->addFile(named, ConfigStore::WhenMissing::reported);
        return store;
    }
    for (const std::string& file : defaultConfigFiles())
        store->addFile(file, ConfigStore::WhenMissing::silent);
    return store;
}

// Never destroyed: static destructors may ask.
const ConfigStore& theStore()
{
    static const ConfigStore* store = loadStore();
    return *store;
}

void reportNoInteger(const std::string& key, const ConfigStore::Entry& entry, int defaultValue)
{
    static auto* lock = new std::mutex;
    static auto* reported = new std::set<std::string>;
    const std::lock_guard guard(*lock);
    if (reported->insert(key).second)
        std::fprintf(stderr, "fsys configuration: %s: value %s of %s is not an integer; using %d\n",
                     entry.place.c_str(), quotedForReport(entry.value).c_str(), key.c_str(), defaultValue);
}

int answerFor(const std::string& key, int defaultValue)
{
    const std::string variable = "FSYS_CFG_" + key;
    ConfigStore::Entry ofEnvironment;
    const ConfigStore::Entry* entry = nullptr;
    if (const char* value = std::getenv(variable.c_str())) {
        ofEnvironment = {value, variable};
        entry = &ofEnvironment;
    } else {
        entry = theStore().find(key);
    }
    if (!entry)
        return defaultValue;
    const std::optional<int> value = parseConfigValue(entry->value);
    if (!value)
        reportNoInteger(key, *entry, defaultValue);
    return value.value_or(defaultValue);
}

}  // namespace

int config_int(const char* key, int defaultValue)
{
    const int answer = key ? answerFor(key, defaultValue) : defaultValue;
    if (const ConfigObserver observer = theObserver.load(std::memory_order_acquire))
        observer(key, defaultValue, answer);
    return answer;
}

void setConfigObserver(ConfigObserver observer) { theObserver.store(observer, std::memory_order_release); }
