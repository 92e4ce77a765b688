#include "Stage.h"

#include "Qz/Utf8.h"

#include <functional>

void Stage::putBystander(const std::string& path, const std::string& contents)
{
    put(path, contents);
    bystanders_[path] = contents;
}

void Stage::told(const std::string& what)
{
    const std::lock_guard<std::mutex> hold(guard_);
    found_.told.push_back(what);
}

void Stage::wrong(const std::string& what)
{
    const std::lock_guard<std::mutex> hold(guard_);
    found_.wrong.push_back(what);
}

void Stage::outcome(const std::string& text)
{
    const std::lock_guard<std::mutex> hold(guard_);
    found_.outcome += plain(text) + "; ";
}

void Stage::outcomeOf(const std::string& path)
{
    const std::optional<std::string> contents = get(path);
    outcome(path + (contents ? ": " + digestOf(plain(*contents)) : std::string(": none")));
}

Stage::Findings Stage::findings()
{
    for (const auto& [path, contents] : bystanders_)
        if (const auto now = get(path); now != contents)
            wrong("a file of somebody else is " + (now ? "damaged: " : std::string("gone: ")) + path);
    const std::lock_guard<std::mutex> hold(guard_);
    return found_;
}

std::string Stage::plain(std::string text) const
{
    const std::string root = toUTF8(os("")).str();
    for (std::size_t at = text.find(root); at != std::string::npos; at = text.find(root, at))
        text.replace(at, root.size(), "/");
    return text;
}

const std::string* Stage::baseline(const std::string& name) const
{
    if (!baseline_)
        return nullptr;
    const auto found = baseline_->find(name);
    return found == baseline_->end() ? nullptr : &found->second;
}

std::string digestOf(const std::string& contents)
{
    return std::to_string(contents.size()) + " bytes, " +
           std::to_string(std::hash<std::string>()(contents) % 1000000007);
}
