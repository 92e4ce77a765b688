#pragma once

#include "os/linux/SambaConfig.h"
#include "os/linux/SambaText.h"

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace os {

// SambaReader: what the sections of a configuration and of the files that it includes say.
//
// Errors: what is malformed, missing or included in a circle is skipped with a debug line.
class SambaReader
{
public:
    // The text of a file, or nothing.
    using Load = std::function<std::optional<std::string>(const std::string& file)>;

    explicit SambaReader(Load load) : load_(std::move(load)) {}

    void readFile(const std::string& file);
    // In the order of their first sections.
    [[nodiscard]] std::vector<SambaShare> shares() const;
    // Where users leave their shares; empty when the configuration does not say.
    [[nodiscard]] const std::string& usershareFolder() const { return usershareFolder_; }

private:
    struct Section
    {
        std::string name;
        std::string label;
        std::string folder;
        bool available = true;
        bool printer = false;
    };

    void take(const SambaLine& line, const std::string& file);
    [[nodiscard]] std::size_t indexOf(const SambaLine& line);
    void include(const std::string& value, const std::string& from);
    void set(const SambaLine& line);
    [[nodiscard]] static bool isShare(const Section& section);

    Load load_;
    // Settings before the first section belong to [global].
    std::vector<Section> sections_{{"global", "global", {}, true, false}};
    std::size_t section_ = 0;
    std::vector<std::string> open_;  // files that are being read, the outermost first
    std::string usershareFolder_;
    unsigned files_ = 0;
};

// The share that a file in the folder of users' shares describes: "#VERSION 1" or "#VERSION 2" as its first
// line, then settings. name is the file's.
[[nodiscard]] std::optional<SambaShare> parseUsershare(const std::string& name, std::string_view text);

}  // namespace os
