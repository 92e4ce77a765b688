#pragma once

#include <string>

// Value of an environment variable; empty when it is not set.
[[nodiscard]] std::string environmentText(const std::string& variable);

// Path of a file of this user: in the folder that xdgVariable names, else in homeFolder below $HOME. A
// folder that is not named by an absolute path counts as not named; empty when no folder is known.
[[nodiscard]] std::string userFile(const char* xdgVariable, const char* homeFolder, const char* file);
