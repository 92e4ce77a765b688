// The text files of media locations: whatever they hold, the registry comes up, and what is added and removed
// afterwards leaves every other line as it was.

#include "Fuzz.h"

#include <algorithm>
#include <string>

#include "Qz/StringHelpers.h"
#include "Qz/Utf8.h"
#include "fsys/DiskManager.h"
#include "fsys/SystemCache.h"
#include "os/testing/FakeOS.h"
#include "support/TextFile.h"

namespace {

using Path = LightweightString<wchar_t>;
using Lines = std::vector<std::string>;

const Path userLocations = L"/project/DefNetDrive.txt";
const Path unmountedDrives = L"/project/UnmountedDrives.txt";
const Path description = L"/m/Material/MediaSpaceInfo.txt";
const Path added = L"/added/";

Lines linesOf(const Path& file)
{
    const TextFile text(file, true);
    Lines lines;
    for (unsigned i = 0; i < text.getLineCount(); ++i)
        lines.push_back(text.getLine(i).str());
    return lines;
}

// A saved list reads back as it is, but for these: a line that ends with a carriage return loses it, and a
// mark of byte order is passed over at the start of the file.
bool survivesSaving(const Lines& lines)
{
    return std::none_of(lines.begin(), lines.end(),
                        [](const std::string& line) { return line.ends_with('\r'); }) &&
           (lines.empty() || !lines.front().starts_with("\xEF\xBB\xBF"));
}

bool isAddedPlace(const std::string& line)
{
    return Qz::equalsIgnoringCase(fromUTF8(line), added) || fromUTF8(line) == Path(L"/added");
}

void checkAddAndRemove()
{
    const Lines before = linesOf(userLocations);
    const Lines unmounted = linesOf(unmountedDrives);
    const auto names = [](const Lines& lines) {
        return std::any_of(lines.begin(), lines.end(), isAddedPlace);
    };
    if (!survivesSaving(before) || names(before) || names(unmounted))
        return;
    if (!DiskManager::addMediaLocation(added))
        return;
    Lines expected = before;
    expected.emplace_back("/added/");
    require(linesOf(userLocations) == expected, "the location is listed behind all others");
    require(linesOf(unmountedDrives) == unmounted, "the other list is left alone");
    require(DiskManager::removeMediaLocation(added), "what was added can be removed");
    require(linesOf(userLocations) == before, "the list is what it was");
}

void checkRegistry()
{
    unsigned count = 0;
    DriveId id;
    for (bool more = DiskManager::getFirstMaterialVolume(id); more;
         more = DiskManager::getNextMaterialVolume(id)) {
        const Qz::Ptr<MediaDrive> drive = DiskManager::getVolume(id);
        require(drive && DiskManager::isVolumePresent(id), "who is walked to is there");
        require(DiskManager::find_index_for_drive(id) == count, "the order is that of registration");
        VolumeInfo info;
        (void)DiskManager::getVolInfo(id, &info);
        ++count;
        require(count <= 256, "ids are distinct");
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static FakeOS os;
    static const ScopedOS installed(os);
    static const NoLog silence;
    static const bool ready = [] {
        for (const wchar_t* drive : {L"/m/", L"/n/", L"/added/"})
            os.files().addDrive(Path(drive));
        os.files().addFolder(L"/m/Sound");
        os.files().addFolder(L"/n/Material");
        os.files().addFolder(L"/project");
        return true;
    }();
    (void)ready;

    const std::vector<std::string_view> parts = partsOf(textOf(data, size), 3);
    os.files().addFile(userLocations, parts[0]);
    os.files().addFile(unmountedDrives, parts[1]);
    os.files().addFile(description, parts[2]);

    SystemCache::invalidate();
    DiskManager::init(L"/project", false);
    checkRegistry();
    checkAddAndRemove();
    DiskManager::deInit();

    os.files().remove(userLocations);
    os.files().remove(unmountedDrives);
    os.log().clear();
    return 0;
}
