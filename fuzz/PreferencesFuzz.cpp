// The preferences file: what was set comes back, and whatever the file held before stays.

#include "Fuzz.h"

#include <optional>
#include <string>

#include "os/testing/FakeOS.h"
#include "support/PreferenceStore.h"
#include "support/SmallFile.h"

namespace {

const LightweightString<wchar_t> file = L"/home/preferences";

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static FakeOS os;
    static const ScopedOS installed(os);
    static const NoLog silence;

    const std::vector<std::string_view> parts = partsOf(textOf(data, size), 3);
    os.files().addFile(file, parts[2]);
    const std::string key = parts[0].empty() ? "key" : std::string(parts[0]);
    const std::string value(parts[1]);
    PreferenceStore before(file);
    const auto find = [](const PreferenceStore& store) {
        const std::string* const text = store.find("other");
        return text ? std::optional(*text) : std::nullopt;
    };
    const std::optional<std::string> untouched = find(before);
    require(before.set(key, value), "a preference is saved");

    const PreferenceStore after(file);
    const std::string* const found = after.find(key);
    require(found && *found == value, "what was set comes back");
    require(key == "other" || find(after) == untouched, "another preference stays as it was");
    const std::string saved = os.files().contents(file);
    PreferenceStore again(file);
    require(again.set(key, value) && os.files().contents(file) == saved, "setting it again changes nothing");
    require(again.remove(key) && !PreferenceStore(file).find(key), "what was removed is gone");
    os.log().clear();
    return 0;
}
