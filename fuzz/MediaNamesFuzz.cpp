// Names in a media folder: a scan files exactly those whose stem is a clip's name, and finds them again.

#include "Fuzz.h"

#include <array>
#include <string>

#include "Qz/StringHelpers.h"
#include "Qz/Utf8.h"
#include "fsys/DiskManager.h"
#include "fsys/SystemCache.h"
#include "os/testing/FakeOS.h"

namespace {

using Path = LightweightString<wchar_t>;

const Path folder = L"/m/Material/";

// The clip that a name is one of; an invalid cookie when it is none.
Cookie clipOf(const std::string& name)
{
    constexpr std::array companions{".partial", ".lvix", ".laix", ".lvix2", ".laix2",
                                    ".vix",     ".aix",  ".vix2", ".aix2",  ".reapeaks"};
    for (const char* companion : companions)
        if (name.ends_with(companion))
            return {};
    const Path stem = fromUTF8(name.substr(0, name.find('.')));
    const Cookie cookie(stem, true);
    return Qz::equalsIgnoringCase(cookie.asWString(), stem) ? cookie : Cookie();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static FakeOS os;
    static const ScopedOS installed(os);
    static const NoLog silence;
    static const DriveId drive = [] {
        os.files().addDrive(L"/m/");
        os.files().addFolder(folder);
        os.files().addFolder(L"/project");
        DiskManager::init(L"/project", true);
        DriveId id;
        DiskManager::addMaterialVolume(L"/m/", id, false);
        return id;
    }();

    const std::string_view text = textOf(data, size);
    const std::string name(text.substr(0, text.find_first_of(std::string_view("/\0\\", 3))));
    if (name.empty() || name == "." || name == "..")
        return 0;
    const Path path = folder + fromUTF8(name);
    os.files().addFile(path, "media");
    SystemCache::invalidate();
    SystemCache::addDirectory(MaterialFilename(drive, L"/Material/"));

    const Cookie clip = clipOf(name);
    bool anyFiled = false;
    SystemCache::enumerate([&](const Cookie& /*cookie*/, const FsysDirectoryEntry& /*entry*/) {
        anyFiled = true;
        return false;
    });
    require(anyFiled == clip.valid(), "clips are filed, nothing else");
    if (clip.valid()) {
        Path found;
        require(SystemCache::findFileForCookie(clip, found, DecodeFormat(eHighRes)), "a clip is found");
        require(found == path, "a clip is found where it is");
    }
    os.files().remove(path);
    os.log().clear();
    return 0;
}
