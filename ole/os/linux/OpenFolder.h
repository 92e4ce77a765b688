#pragma once

#include <dirent.h>

#include <memory>

namespace os {

struct CloseFolder
{
    void operator()(DIR* folder) const { ::closedir(folder); }
};

// A folder that is being read, closed at the end of its scope.
using OpenFolder = std::unique_ptr<DIR, CloseFolder>;

}  // namespace os
