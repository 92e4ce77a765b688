// Link files: whatever a file holds, it is a link by the rule of size and mark, and its target is its text.

#include "Fuzz.h"

#include <algorithm>
#include <string>

#include "Qz/Utf8.h"
#include "fsys/MaterialLink.h"
#include "os/testing/FakeOS.h"

namespace {

using Path = LightweightString<wchar_t>;

const Path linkPath = L"/m/Material/a.mov";

std::string_view targetIn(std::string_view contents)
{
    const std::string_view text = contents.substr(0, MaterialLink::linkFileSize - 1);
    return text.substr(0, text.find('\0'));
}

void checkReading(std::string_view contents)
{
    const bool expected = contents.size() == MaterialLink::linkFileSize && !contents.starts_with("RIFF");
    Path target = linkPath;
    require(MaterialLink::getLinkedFilename(target, target) == expected, "a link by size and mark");
    require(MaterialLink::isLink(linkPath) == expected, "both questions have one answer");
    require(expected ? toUTF8(target).view() == targetIn(contents) : target == linkPath,
            "the text up to the zero, else the file itself");
    const Path resolved = MaterialLink::resolveLink(MaterialFilename(DriveId(), linkPath));
    require(resolved == target, "one step, from wherever it is asked");
}

void checkWriting(FakeOS& os, std::string_view target)
{
    os.files().remove(linkPath);
    require(MaterialLink::createLink(linkPath, fromUTF8(std::string(target)), false), "a link is made");
    const std::string contents = os.files().contents(linkPath);
    require(contents.size() == MaterialLink::linkFileSize, "a link has its size");
    require(targetIn(contents) == target, "a link holds its target");
    Path read;
    const bool isLink = MaterialLink::getLinkedFilename(linkPath, read);
    require(isLink ? toUTF8(read).view() == target : target.starts_with("RIFF"), "a target comes back");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static FakeOS os;
    static const ScopedOS installed(os);
    static const NoLog silence;

    // Most inputs are shorter than a link: they are tried as its beginning. Those near its size are tried as
    // they are.
    const std::string_view input = textOf(data, size);
    std::string filled(input);
    filled.resize(MaterialLink::linkFileSize);
    if (size % 2 != 0) {
        checkWriting(os, targetIn(filled));
    } else {
        const bool isNear = size + 16 > filled.size();
        os.files().addFile(linkPath, isNear ? input : filled);
        checkReading(isNear ? input : filled);
    }
    os.log().clear();
    return 0;
}
