#pragma once

#include <string>
#include <vector>

// Surroundings: the files and environment variables that every command shares, for the page of the command as
// a whole.

struct Described
{
    std::string name;
    std::string meaning;
};

[[nodiscard]] const std::vector<Described>& environmentVariables();
[[nodiscard]] const std::vector<Described>& files();
