#include "support/UserFolders.h"

#include <cstdlib>

std::string environmentText(const std::string& variable)
{
    const char* value = std::getenv(variable.c_str());
    return value ? value : "";
}

std::string userFile(const char* xdgVariable, const char* homeFolder, const char* file)
{
    const std::string named = environmentText(xdgVariable);
    if (named.starts_with('/'))
        return named + '/' + file;
    const std::string home = environmentText("HOME");
    return home.starts_with('/') ? home + '/' + homeFolder + '/' + file : std::string();
}
