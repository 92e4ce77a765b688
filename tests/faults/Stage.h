#pragma once

#include "Qz/LightweightString.h"
#include "os/testing/FaultPlan.h"

#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

// Stage: where one run of a scenario takes place, and what is found out about it.
//
// Paths:      relative to the stage's root, with '/'; os() gives the operating system's form.
// Findings:   from any thread.
class Stage
{
public:
    using Path = LightweightString<wchar_t>;

    Stage() = default;
    virtual ~Stage() = default;
    Stage(const Stage&) = delete;
    Stage& operator=(const Stage&) = delete;

    // --- files; none of these meets a fault

    [[nodiscard]] virtual Path os(const std::string& path) const = 0;
    virtual void put(const std::string& path, const std::string& contents) = 0;
    virtual void putFolder(const std::string& path) = 0;
    // Without a file: nothing.
    [[nodiscard]] virtual std::optional<std::string> get(const std::string& path) const = 0;
    // A file that the scenario does not own.
    void putBystander(const std::string& path, const std::string& contents);

    // --- the platform

    [[nodiscard]] virtual fake::FaultPlan& faults() = 0;
    // Another thread of the application holds the lists of open files.
    virtual void holdPolls(bool /*held*/) {}
    // Lets that much time of the platform pass.
    virtual void pass(unsigned ms) = 0;

    // Everything that was logged, and how many errors were reported to the platform.
    [[nodiscard]] virtual std::vector<std::string> logged() const = 0;
    [[nodiscard]] virtual std::size_t reported() const { return 0; }
    // What the platform still holds for the engine; empty for nothing.
    [[nodiscard]] virtual std::string leftBehind() const { return {}; }

    // False where timing decides what a run comes to.
    [[nodiscard]] virtual bool isRepeatable() const { return true; }

    // --- findings

    // Text without the stage's root, which may be another one in each run.
    [[nodiscard]] std::string plain(std::string text) const;
    // Somebody was told of a failure.
    void told(const std::string& what);
    // A promise was broken.
    void wrong(const std::string& what);
    void check(bool holds, const std::string& promise)
    {
        if (!holds)
            wrong(promise);
    }
    // Adds to what the run came to; runs that come to the same have had the same effect.
    void outcome(const std::string& text);
    // The same for the contents of a file.
    void outcomeOf(const std::string& path);

    struct Findings
    {
        std::string outcome;
        std::vector<std::string> told;
        std::vector<std::string> wrong;
        std::map<std::string, std::string> kept;
    };
    // Looks at the bystanders as well.
    [[nodiscard]] Findings findings();

    // What the run without faults kept under that name; this run is that one without a baseline.
    [[nodiscard]] const std::string* baseline(const std::string& name) const;
    void setBaseline(const std::map<std::string, std::string>* kept) { baseline_ = kept; }
    void keep(const std::string& name, const std::string& contents) { found_.kept[name] = contents; }

private:
    std::mutex guard_;  // guards what was found
    Findings found_;
    std::map<std::string, std::string> bystanders_;
    const std::map<std::string, std::string>* baseline_ = nullptr;
};

// A short form of contents, for outcomes.
[[nodiscard]] std::string digestOf(const std::string& contents);
