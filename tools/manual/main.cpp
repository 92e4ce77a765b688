// Writes the manual pages and the completions of the fsys command: fsys_manual TEMPLATES FOLDER. The build
// runs it; nothing in FOLDER is kept.

#include "CommandLine.h"
#include "Completion.h"
#include "ManPage.h"

#include <cstdio>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>

namespace {

namespace fs = std::filesystem;

std::string contentOf(const fs::path& path)
{
    std::ifstream file(path, std::ios::binary);
    if (!file)
        throw std::runtime_error("cannot read " + path.string());
    return {std::istreambuf_iterator<char>(file), {}};
}

void write(const fs::path& path, const std::string& content)
{
    fs::create_directories(path.parent_path());
    std::ofstream file(path, std::ios::binary);
    file << content;
    if (!file.flush())
        throw std::runtime_error("cannot write " + path.string());
}

void writeAll(const fs::path& templates, const fs::path& folder)
{
    const CommandLine line;
    const CommandNode tree = treeOf(line.app());
    fs::remove_all(folder);
    for (const CommandNode* command : allOf(tree))
        write(folder / "man1" / pageName(*command), manPage(tree, *command, FSYS_VERSION));
    // Named as the shells look for them.
    write(folder / "bash" / "fsys", bashCompletion(tree, contentOf(templates / "bash.in")));
    write(folder / "fish" / "fsys.fish", fishCompletion(tree, contentOf(templates / "fish.in")));
    write(folder / "zsh" / "_fsys", zshCompletion(tree, contentOf(templates / "zsh.in")));
}

}  // namespace

int main(int argumentCount, char** arguments)
{
    if (argumentCount != 3) {
        std::fputs("usage: fsys_manual TEMPLATES FOLDER\n", stderr);
        return 2;
    }
    try {
        writeAll(arguments[1], arguments[2]);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "fsys_manual: %s\n", error.what());
        return 1;
    }
    return 0;
}
