// Names of proxies: any name is read without harm, and a name that was built tells what it was built from.

#include "Fuzz.h"

#include <cstring>
#include <string>

#include "Qz/Utf8.h"
#include "fsys/MediaFileInfo.h"
#include "support/PathHelpers.h"

namespace {

using Path = LightweightString<wchar_t>;

void checkAnyName(const Path& name)
{
    const MediaFileInfo info(MaterialFilename(DriveId(), name), 1);
    const bool isProxy = MediaFileInfo::isProxy(name);
    require(info.isProxy() == isProxy, "the record and the name agree");
    require(isProxy || MediaFileInfo::getProxyHeight(name) == MediaFileInfo::noProxyHeight,
            "a name with a height is one of a proxy");
    require(!isProxy || MediaFileInfo::hasProxyWord(name.view()), "no proxy without the word");
    require(info.getProxyHeight() == (isProxy ? MediaFileInfo::getProxyHeight(name) : 0),
            "the record has the height");
    require(info.getProxyAudioChannels() == (isProxy ? MediaFileInfo::getProxyAudioChannels(name) : 0),
            "the record has the channels");
}

// Where the stem has none of the tags, height and channels come back.
void checkBuiltName(const Path& stem, unsigned height, unsigned char channels)
{
    const Path built = MediaFileInfo::makeProxyName(stem, L"mov", height, channels);
    const Path base = stripExtension(stem);
    if (base.find(L"proxy") != Path::npos || base.find(L".A") != Path::npos)
        return;
    require(MediaFileInfo::getProxyHeight(built) == height, "the height comes back");
    require(MediaFileInfo::getProxyAudioChannels(built) == channels, "the channels come back");
    require(MediaFileInfo::isProxy(built) == (height != MediaFileInfo::noProxyHeight) ||
                built.find(L"/proxy/proxy-") != Path::npos,
            "a built name is one of a proxy");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    unsigned height = 0;
    if (size > sizeof(height))
        std::memcpy(&height, data, sizeof(height));
    const Path name = fromUTF8(std::string(textOf(data, size)));
    checkAnyName(name);
    checkBuiltName(name, height, size ? data[size - 1] : 0);
    return 0;
}
