// smb.conf and two files that it may include: what comes out are folders that can be exported, and it ends.

#include "Fuzz.h"

#include <array>
#include <string>

#include "os/linux/SambaReader.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::vector<std::string_view> parts = partsOf(textOf(data, size), 3);
    os::SambaReader reader([&](const std::string& file) -> std::optional<std::string> {
        constexpr std::array<std::string_view, 3> names{"/c/smb.conf", "/c/a", "/c/b"};
        for (std::size_t i = 0; i < names.size(); ++i)
            if (file == names[i])
                return std::string(parts[i]);
        return {};
    });
    reader.readFile("/c/smb.conf");
    for (const os::SambaShare& share : reader.shares()) {
        require(!share.name.empty() && share.name != "global", "a share has a name of its own");
        require(share.folder.starts_with('/') && share.folder.ends_with('/'), "a share is a folder");
        require(share.folder.find('%') == std::string::npos, "a share's folder is fixed");
    }
    return 0;
}
