#include "CommandTree.h"

#include <regex>
#include <sstream>
#include <stdexcept>
#include <utility>

namespace {

// The words that stand for values in the help; those of other values tell nothing of where to find one.
Takes takesByWord(const std::string& word)
{
    if (word == "LOCATION" || word == "ID" || word == "PATH|ID")
        return Takes::location;
    if (word == "COOKIE")
        return Takes::cookie;
    if (word == "COOKIE|PATH")
        return Takes::cookieOrFile;
    if (word == "DIR" || word == "FOLDER")
        return Takes::folder;
    if (word == "FILE" || word == "PATH" || word == "OLD")
        return Takes::file;
    return Takes::text;
}

std::string withoutZeros(const std::string& number)
{
    return std::regex_replace(number, std::regex(R"((\.[0-9]*?)0+$)"), "$1");
}

std::string shortened(std::string number)
{
    if (number.find('.') == std::string::npos)
        return number;
    number = withoutZeros(number);
    if (number.back() == '.')
        number.pop_back();
    return number;
}

std::vector<std::string> splitAtCommas(const std::string& text)
{
    std::vector<std::string> parts;
    std::istringstream rest(text);
    for (std::string part; std::getline(rest, part, ',');)
        parts.push_back(part);
    return parts;
}

// The parser tells the type of an option, and what limits it, in one text: "TEXT:{high,proxy,auto}",
// "UINT:UINT in [1 - 64]", "FLOAT:0.010000 to 5.000000", "UINT:SIZE [b, kb(=1024b), ...]", "DIR". In
// "LOCATION|auto" the word is one that may stand instead.
void readType(const std::string& type, Argument& argument)
{
    std::smatch found;
    argument.value = type.substr(0, type.find(':'));
    argument.takes = takesByWord(argument.value);
    if (std::regex_match(argument.value, found, std::regex(R"(([A-Z]+)\|([a-z]+))"))) {
        argument.takes = takesByWord(found[1]);
        argument.choices = {found[2]};
    } else if (std::regex_search(type, found, std::regex(R"(\{(.*)\})"))) {
        argument.takes = Takes::choice;
        argument.choices = splitAtCommas(found[1]);
    } else if (type.find("SIZE [") != std::string::npos) {
        argument.takes = Takes::size;
        argument.value = "SIZE";
    } else if (argument.value == "UINT" || argument.value == "INT" || argument.value == "FLOAT") {
        argument.takes = Takes::number;
        argument.value = "NUMBER";
    }
    if (std::regex_search(type, found, std::regex(R"(in \[(\S+) - (\S+)\])")) ||
        std::regex_search(type, found, std::regex(R"(:(-?[0-9.]+) to (-?[0-9.]+))"))) {
        argument.least = shortened(found[1]);
        argument.most = shortened(found[2]);
    }
}

std::vector<std::string> namesOf(const CLI::Option& option)
{
    std::vector<std::string> names;
    for (const std::string& name : option.get_snames())
        names.push_back("-" + name);
    for (const std::string& name : option.get_lnames())
        names.push_back("--" + name);
    if (option.get_positional())
        names.push_back(option.get_name(true));
    return names;
}

// In the order in which the command has them: the parser keeps them by address.
std::vector<std::string> namesIn(const CLI::App& app, const std::set<CLI::Option*>& options)
{
    std::vector<std::string> names;
    for (const CLI::Option* option : app.get_options())
        for (const CLI::Option* wanted : options)
            if (wanted == option)
                names.push_back(namesOf(*option).back());
    return names;
}

Argument argumentOf(const CLI::App& app, const CLI::Option& option)
{
    Argument argument;
    argument.names = namesOf(option);
    argument.meaning = option.get_description();
    argument.required = option.get_required();
    argument.needs = namesIn(app, option.get_needs());
    argument.excludes = namesIn(app, option.get_excludes());
    if (option.get_items_expected_max() == 0)
        return argument;
    readType(option.get_type_name(), argument);
    argument.repeats = option.get_items_expected_max() > 1;
    // A default that a required option has is never used.
    if (!argument.required)
        argument.byDefault = shortened(option.get_default_str());
    if (!option.get_positional())
        return argument;
    if (argument.takes == Takes::text)
        argument.takes = takesByWord(argument.names.front());
    argument.value = argument.names.front();
    return argument;
}

CommandNode nodeOf(const CLI::App& app, std::vector<std::string> words)
{
    CommandNode node;
    node.words = std::move(words);
    node.words.push_back(app.get_name());
    node.summary = app.get_description();
    const CommandHelp* const help = helpOf(app);
    if (!help)
        throw std::runtime_error(lineOf(node) + " has no help below its options");
    node.help = *help;
    for (const CLI::Option* option : app.get_options())
        (option->get_positional() ? node.positionals : node.options).push_back(argumentOf(app, *option));
    for (const CLI::App* command : app.get_subcommands([](const CLI::App*) { return true; }))
        node.commands.push_back(nodeOf(*command, node.words));
    node.standsAlone = app.get_require_subcommand_min() == 0;
    return node;
}

void addAll(const CommandNode& node, std::vector<const CommandNode*>& all)
{
    all.push_back(&node);
    for (const CommandNode& command : node.commands)
        addAll(command, all);
}

}  // namespace

CommandNode treeOf(const CLI::App& app) { return nodeOf(app, {}); }

std::string lineOf(const CommandNode& command, const char* between)
{
    std::string line;
    for (const std::string& word : command.words)
        line += (line.empty() ? "" : between) + word;
    return line;
}

std::vector<const CommandNode*> allOf(const CommandNode& tree)
{
    std::vector<const CommandNode*> all;
    addAll(tree, all);
    return all;
}
