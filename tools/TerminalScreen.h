#pragma once

#include "TerminalKeys.h"

#include <chrono>
#include <string>

// TerminalScreen: a whole terminal for a display that changes, and the keys that are pressed meanwhile.
//
// The terminal is given back as it was, with what stood on it, by the destructor and by a signal that ends
// the process. SIGINT, SIGTERM, SIGQUIT and SIGHUP ask for the end first (isEndWanted); the second one ends.
// Threads: one object at a time, of one thread. Handlers run on any.
class TerminalScreen
{
public:
    using Clock = std::chrono::steady_clock;

    struct Size
    {
        unsigned columns = 80;
        unsigned lines = 24;
    };

    // terminal: descriptor that is written to. Keys come from standard input where that is a terminal.
    explicit TerminalScreen(int terminal);
    ~TerminalScreen();
    TerminalScreen(const TerminalScreen&) = delete;
    TerminalScreen& operator=(const TerminalScreen&) = delete;

    // As of now; what the terminal does not tell counts as 80 columns and 24 lines.
    [[nodiscard]] Size size() const;
    // Replaces what is shown; text holds lines, without a line break behind the last. False when the
    // terminal has gone.
    [[nodiscard]] bool show(const std::string& text) const;
    // Until time, a key, another size or the wish to end; whichever comes first.
    [[nodiscard]] TerminalKey wait(Clock::time_point time);
    [[nodiscard]] bool isEndWanted() const;

private:
    [[nodiscard]] TerminalKey readKey();

    int terminal_;
    bool hasKeys_ = false;
    std::string typed_;  // and not yet taken
};
