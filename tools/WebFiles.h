#pragma once

#include <string_view>
#include <vector>

// WebFiles: the files of tools/web, as the build has put them into the program.

struct WebFile
{
    std::string_view path;  // "/page.js"; "/" for the page itself
    std::string_view type;
    std::string_view content;
};

[[nodiscard]] const std::vector<WebFile>& webFiles();
// The program that draws charts is among them.
[[nodiscard]] bool haveCharts();
