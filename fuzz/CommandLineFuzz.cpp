// The command line: any words are taken or refused with the status for wrong usage, and nothing is done yet.

#include "Fuzz.h"

#include <string>

#include "CommandLine.h"

namespace {

// Building the parser takes a hundred times as long as using it.
CommandLine& commandLine()
{
    static CommandLine line;
    return line;
}

std::vector<std::string> wordsOf(std::string_view text)
{
    std::vector<std::string> words;
    for (std::size_t end = 0; end != std::string_view::npos;) {
        end = text.find_first_of(std::string_view("\n\0", 2));
        words.emplace_back(text.substr(0, end));
        text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
    }
    return words;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::vector<std::string> words = wordsOf(textOf(data, size));
    const int status = commandLine().parse(words);
    const bool acts = static_cast<bool>(commandLine().action());
    require(status == exitDone || status == exitUsage, "taken, or wrong usage");
    require(!acts || status == exitDone, "what is refused is not done");
    // Of the same words the second time comes the same.
    require(commandLine().parse(words) == status && static_cast<bool>(commandLine().action()) == acts,
            "the same words mean the same");
    return 0;
}
