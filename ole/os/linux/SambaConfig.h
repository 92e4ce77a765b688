#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace os {

// SambaConfig: which folders this machine exports through Samba, told by the files that Samba itself
// reads: its configuration with all includes, and the folder in which users leave shares of their own.
//
// Errors: a file that is missing or malformed is skipped with a debug line; the rest counts.

struct SambaShare
{
    std::string name;
    std::string folder;  // ends with the separator
};

// The shares of one configuration. Sections that export no fixed folder are left out: [global],
// [homes], [printers], [print$], printers, those that are not available, and folders with variables.
// usershareFolder is where user shares lie when the configuration does not say; empty for nowhere.
// Order: longest name first, then by name, so that a search by prefix meets the closest name first.
[[nodiscard]] std::vector<SambaShare> readSambaShares(const std::string& configFile,
                                                      const std::string& usershareFolder);

// The shares of this machine. The environment variable FSYS_SMB_CONF names another configuration.
[[nodiscard]] std::vector<SambaShare> sambaShares();

}  // namespace os
