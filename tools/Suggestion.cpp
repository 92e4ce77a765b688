#include "Suggestion.h"

#include <algorithm>
#include <vector>

namespace {

// Edits that make one text of the other; swapped neighbours are one edit.
std::size_t editDistance(const std::string& a, const std::string& b)
{
    std::vector<std::vector<std::size_t>> rows(a.size() + 1, std::vector<std::size_t>(b.size() + 1));
    for (std::size_t i = 0; i <= a.size(); ++i)
        for (std::size_t j = 0; j <= b.size(); ++j) {
            if (i == 0 || j == 0) {
                rows[i][j] = i + j;
                continue;
            }
            const std::size_t wrong = a[i - 1] == b[j - 1] ? 0 : 1;
            rows[i][j] = std::min({rows[i - 1][j] + 1, rows[i][j - 1] + 1, rows[i - 1][j - 1] + wrong});
            if (i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1])
                rows[i][j] = std::min(rows[i][j], rows[i - 2][j - 2] + 1);
        }
    return rows[a.size()][b.size()];
}

// In short words a few edits reach anything.
std::size_t editsMax(const std::string& word) { return word.size() <= 3 ? 1 : word.size() <= 6 ? 2 : 3; }

// Edits between the two, or any number above editsMax.
std::size_t distanceOf(const std::string& word, const std::string& name)
{
    if (word.size() > 1 && name.starts_with(word))
        return std::min<std::size_t>(name.size() - word.size(), 1);
    // A word may be as long as the system lets a command line be; the difference alone is too much then.
    const std::size_t difference = std::max(word.size(), name.size()) - std::min(word.size(), name.size());
    return difference > editsMax(word) ? difference : editDistance(word, name);
}

struct Nearest
{
    std::string command;
    std::size_t edits;
};

std::string pathOf(const CLI::App& app)
{
    const CLI::App* const parent = app.get_parent();
    return parent ? pathOf(*parent) + app.get_name() + " " : "";
}

// surcharge: commands elsewhere are meant less often than those of the place where the word stands.
void search(const CLI::App& place, const std::string& word, std::size_t surcharge, bool below,
            Nearest& nearest)
{
    for (const CLI::App* command : place.get_subcommands([](const CLI::App*) { return true; })) {
        const std::size_t edits = distanceOf(word, command->get_name());
        if (edits <= editsMax(word) && edits + surcharge < nearest.edits)
            nearest = {pathOf(place) + command->get_name(), edits + surcharge};
        if (below)
            search(*command, word, surcharge, true, nearest);
    }
}

}  // namespace

std::string nearestCommand(const CLI::App& level, const std::string& word)
{
    const CLI::App* top = &level;
    while (top->get_parent())
        top = top->get_parent();
    Nearest nearest{{}, std::string::npos};
    search(level, word, 0, false, nearest);
    search(*top, word, 1, true, nearest);
    return nearest.command;
}
