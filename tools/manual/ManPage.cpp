#include "ManPage.h"

#include "Roff.h"
#include "Surroundings.h"

#include <cctype>
#include <sstream>

namespace {

using Lines = std::vector<std::string>;

Lines linesOf(const std::string& text)
{
    Lines lines;
    std::istringstream rest(text);
    for (std::string line; std::getline(rest, line);)
        lines.push_back(line);
    return lines;
}

std::string joined(const Lines& parts, const std::string& between)
{
    std::string text;
    for (const std::string& part : parts)
        text += (text.empty() ? "" : between) + part;
    return text;
}

std::string section(const std::string& title) { return ".SH " + title + "\n"; }

std::string entry(const std::string& term, const std::string& meaning)
{
    return ".TP\n" + term + "\n" + meaning + "\n";
}

// Each line a paragraph.
std::string paragraphs(const std::string& text)
{
    std::string out;
    for (const std::string& line : linesOf(text))
        out += (out.empty() ? "" : ".PP\n") + roffProse(line) + "\n";
    return out;
}

std::string sentence(std::string text)
{
    if (text.empty())
        return text;
    text.front() = static_cast<char>(std::toupper(static_cast<unsigned char>(text.front())));
    return text.back() == '.' ? text : text + ".";
}

std::string pageReference(const CommandNode& command) { return bold(lineOf(command, "-")) + "(1)"; }

// "--height NUMBER", or the word of a positional argument.
std::string shownForm(const Argument& argument, const std::string& name)
{
    if (!name.starts_with('-'))
        return italic(name);
    return bold(name) + (argument.takes == Takes::nothing ? "" : " " + italic(argument.value));
}

std::string synopsisOf(const CommandNode& command)
{
    std::string line = bold(lineOf(command));
    bool hasMore = false;
    for (const Argument& option : command.options) {
        if (option.required)
            line += " " + shownForm(option, option.names.back());
        hasMore = hasMore || !option.required;
    }
    if (hasMore)
        line += " [" + italic("OPTION") + "]...";
    for (const Argument& argument : command.positionals) {
        const std::string word = italic(argument.names.front()) + (argument.repeats ? "..." : "");
        line += argument.required ? " " + word : " [" + word + "]";
    }
    return line;
}

std::string synopsis(const CommandNode& command)
{
    std::string text = section("SYNOPSIS");
    if (command.standsAlone)
        text += synopsisOf(command) + "\n";
    if (!command.commands.empty())
        text += (command.standsAlone ? ".br\n" : "") + bold(lineOf(command)) +
                (command.words.size() == 1 ? " [" + italic("OPTION") + "]..." : "") + " " +
                italic("COMMAND") + " [" + italic("ARGUMENT") + "]...\n";
    return text;
}

std::string description(const CommandNode& command)
{
    std::string text = section("DESCRIPTION") + roffProse(sentence(command.summary)) + "\n";
    if (!command.help.notes.empty())
        text += ".PP\n" + paragraphs(command.help.notes);
    return text;
}

std::string limitsOf(const Argument& argument)
{
    std::string text;
    if (argument.takes == Takes::choice)
        text += " One of " + joined(argument.choices, ", ") + ".";
    if (argument.takes == Takes::size)
        text += " In bytes; k, m, g or t behind the number counts them in powers of 1024.";
    if (!argument.least.empty())
        text += " From " + argument.least + " to " + argument.most + ".";
    return text;
}

std::string meaningOf(const Argument& argument)
{
    std::string text = sentence(argument.meaning) + limitsOf(argument);
    if (!argument.byDefault.empty())
        text += " Default: " + argument.byDefault + ".";
    if (argument.required && argument.names.back().starts_with('-'))
        text += " Required.";
    if (!argument.needs.empty())
        text += " Only with " + joined(argument.needs, ", ") + ".";
    if (!argument.excludes.empty())
        text += " Not with " + joined(argument.excludes, ", ") + ".";
    return roffProse(text);
}

std::string entriesOf(const std::vector<Argument>& arguments)
{
    std::string text;
    for (const Argument& argument : arguments) {
        Lines forms;
        for (const std::string& name : argument.names)
            forms.push_back(shownForm(argument, name));
        text += entry(joined(forms, ", "), meaningOf(argument));
    }
    return text;
}

std::string options(const CommandNode& tree, const CommandNode& command)
{
    std::string text;
    if (!command.positionals.empty())
        text += section("ARGUMENTS") + entriesOf(command.positionals);
    text += section("OPTIONS") + entriesOf(command.options);
    if (&command == &tree)
        return text + ".PP\nThey may stand before or behind the command.\n";
    Lines common;
    for (const Argument& option : tree.options)
        if (option.names.back() != "--help")
            common.push_back(bold(option.names.back()));
    return text + ".PP\nEvery command takes " + joined(common, ", ") + " as well; " + pageReference(tree) +
           " tells what they do.\n";
}

std::string commands(const CommandNode& command)
{
    std::string text;
    for (const CommandNode& below : command.commands)
        text += entry(pageReference(below), roffProse(sentence(below.summary)));
    return text.empty() ? text : section("COMMANDS") + text;
}

std::string keys(const CommandHelp& help)
{
    if (help.keys.empty())
        return {};
    return section("KEYS (JSON)") + "With " + bold("--json") +
           " the answer is one JSON object per line. Its keys:\n.PP\n" + paragraphs(help.keys);
}

std::string exitStatus(const CommandHelp& help)
{
    if (help.done.empty())
        return {};
    std::string text = section("EXIT STATUS") + entry("0", roffProse(sentence(help.done)));
    if (!help.no.empty())
        text += entry("1", roffProse(sentence(help.no)));
    return text + entry("2", "Wrong usage.") + entry("3", roffProse(sentence(help.failed)));
}

std::string examples(const CommandHelp& help)
{
    if (help.example.empty())
        return {};
    return section("EXAMPLES") + ".EX\n" + roff(help.example) + "\n.EE\n";
}

std::string list(const std::string& title, const std::vector<Described>& entries)
{
    std::string text = section(title);
    for (const Described& described : entries)
        text += entry(bold(described.name), roffProse(described.meaning));
    return text;
}

const CommandNode* parentOf(const CommandNode& tree, const CommandNode& command)
{
    for (const CommandNode* node : allOf(tree))
        for (const CommandNode& below : node->commands)
            if (&below == &command)
                return node;
    return nullptr;
}

// The page above, and those beside this one; of a page right below the first one the others are too many.
std::string seeAlso(const CommandNode& tree, const CommandNode& command)
{
    Lines pages;
    const CommandNode* const parent = parentOf(tree, command);
    if (parent && parent != &tree)
        pages.push_back(pageReference(*parent));
    for (const CommandNode& beside : parent&& parent != &tree ? parent->commands : command.commands)
        if (&beside != &command)
            pages.push_back(pageReference(beside));
    if (&command != &tree)
        pages.insert(pages.begin(), pageReference(tree));
    return section("SEE ALSO") + joined(pages, ",\n") + "\n";
}

std::string nameSection(const CommandNode& command)
{
    std::string summary = command.summary;
    if (summary.size() > 1 && std::islower(static_cast<unsigned char>(summary[1])) != 0)
        summary.front() = static_cast<char>(std::tolower(static_cast<unsigned char>(summary.front())));
    if (summary.ends_with('.'))
        summary.pop_back();
    return section("NAME") + roff(lineOf(command, "-")) + " \\- " + roffProse(summary) + "\n";
}

std::string heading(const CommandNode& command, const std::string& version)
{
    std::string title = lineOf(command, "-");
    for (char& letter : title)
        letter = static_cast<char>(std::toupper(static_cast<unsigned char>(letter)));
    // No date: the same source makes the same page.
    return ".TH " + roff(title) + " 1 \"\" \"fsys " + version + "\" \"fsys manual\"\n.nh\n.ad l\n";
}

}  // namespace

std::string manPage(const CommandNode& tree, const CommandNode& command, const std::string& version)
{
    std::string page = heading(command, version) + nameSection(command) + synopsis(command) +
                       description(command) + commands(command) + options(tree, command) +
                       keys(command.help) + exitStatus(command.help) + examples(command.help);
    if (&command == &tree)
        page += list("FILES", files()) + list("ENVIRONMENT", environmentVariables());
    else
        page += section("FILES") + "See " + pageReference(tree) + ".\n" + section("ENVIRONMENT") + "See " +
                pageReference(tree) + ".\n";
    return page + seeAlso(tree, command);
}

std::string pageName(const CommandNode& command) { return lineOf(command, "-") + ".1"; }
