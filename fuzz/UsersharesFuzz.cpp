// A user's share: only a file of the known form is one, and then it has a name and a folder.

#include "Fuzz.h"

#include <string>

#include "os/linux/SambaReader.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string_view text = textOf(data, size);
    // The first line is hard to come by, so every input is tried behind one as well.
    for (const std::string& file : {std::string(text), "#VERSION 2\n" + std::string(text)}) {
        const std::optional<os::SambaShare> share = os::parseUsershare("name", file);
        if (!share)
            continue;
        require(file.starts_with("#VERSION "), "only a file of a known version is a share");
        require(!share->name.empty(), "a share has a name");
        require(share->folder.starts_with('/') && share->folder.ends_with('/'), "a share is a folder");
    }
    return 0;
}
