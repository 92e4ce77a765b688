#include "TerminalScreen.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <string_view>
#include <utility>

#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

namespace {

// Another page, without cursor and without wrapping at its edge; and back.
constexpr std::string_view enterText = "\033[?1049h\033[?25l\033[?7l\033[2J";
constexpr std::string_view leaveText = "\033[?7h\033[?25h\033[0m\033[?1049l";
constexpr std::array<int, 4> endSignals{SIGINT, SIGTERM, SIGQUIT, SIGHUP};

// What handlers need; they may use nothing but these and calls that are safe in a handler.
struct
{
    std::atomic<int> terminal{-1};
    std::atomic<bool> hasModes{false};
    termios modes = {};
    std::atomic<bool> endWanted{false};
    std::array<int, 2> wake{-1, -1};
} state;
static_assert(std::atomic<int>::is_always_lock_free && std::atomic<bool>::is_always_lock_free,
              "signal handlers use them");

bool writeAll(int to, std::string_view text)
{
    while (!text.empty()) {
        const ssize_t written = write(to, text.data(), text.size());
        if (written < 0 && errno == EINTR)
            continue;
        if (written <= 0)
            return false;
        text.remove_prefix(static_cast<std::size_t>(written));
    }
    return true;
}

// Once, whoever comes first: the destructor or a handler.
void giveBack()
{
    const int terminal = state.terminal.exchange(-1);
    if (terminal < 0)
        return;
    writeAll(terminal, leaveText);
    if (state.hasModes)
        tcsetattr(STDIN_FILENO, TCSANOW, &state.modes);
}

void wakeUp()
{
    const char byte = 0;
    // A full pipe has something that wakes already.
    [[maybe_unused]] const ssize_t written = write(state.wake[1], &byte, 1);
}

void handleEnd(int signal)
{
    const int keptErrno = errno;
    if (state.endWanted.exchange(true)) {
        giveBack();
        ::signal(signal, SIG_DFL);
        raise(signal);
    }
    wakeUp();
    errno = keptErrno;
}

void handleResize(int)
{
    const int keptErrno = errno;
    wakeUp();
    errno = keptErrno;
}

void setHandler(int signal, void (*handler)(int))
{
    struct sigaction action = {};
    action.sa_handler = handler;
    action.sa_flags = SA_RESTART;
    sigemptyset(&action.sa_mask);
    sigaction(signal, &action, nullptr);
}

// Keys one by one, unseen, and none of them a signal: those would end what only we can put right.
bool takeKeys()
{
    if (tcgetattr(STDIN_FILENO, &state.modes) != 0)
        return false;
    termios modes = state.modes;
    modes.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO | ISIG | IEXTEN);
    modes.c_cc[VMIN] = 0;
    modes.c_cc[VTIME] = 0;
    return tcsetattr(STDIN_FILENO, TCSANOW, &modes) == 0;
}

}  // namespace

TerminalScreen::TerminalScreen(int terminal) : terminal_(terminal)
{
    if (pipe2(state.wake.data(), O_CLOEXEC | O_NONBLOCK) != 0)
        state.wake = {-1, -1};
    state.endWanted = false;
    hasKeys_ = isatty(STDIN_FILENO) == 1 && takeKeys();
    state.hasModes = hasKeys_;
    state.terminal = terminal_;
    for (const int signal : endSignals)
        setHandler(signal, handleEnd);
    setHandler(SIGWINCH, handleResize);
    writeAll(terminal_, enterText);
}

TerminalScreen::~TerminalScreen()
{
    giveBack();
    for (const int signal : endSignals)
        setHandler(signal, SIG_DFL);
    setHandler(SIGWINCH, SIG_DFL);
    for (int& end : state.wake)
        if (end >= 0)
            close(std::exchange(end, -1));
}

TerminalScreen::Size TerminalScreen::size() const
{
    winsize told = {};
    Size size;
    if (ioctl(terminal_, TIOCGWINSZ, &told) == 0 && told.ws_col > 0 && told.ws_row > 0) {
        size.columns = told.ws_col;
        size.lines = told.ws_row;
    }
    return size;
}

bool TerminalScreen::show(const std::string& text) const
{
    // What was there is wiped before a line and not behind it: behind one that fills the width the cursor
    // still stands on its last sign. Before the last one, all below goes too.
    const std::size_t last = text.find_last_of('\n');
    std::string drawn = last == std::string::npos ? "\033[H\033[J" : "\033[H\033[K";
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '\n')
            drawn += i == last ? "\033[0m\r\n\033[J" : "\033[0m\r\n\033[K";
        else
            drawn += text[i];
    }
    return writeAll(terminal_, drawn + "\033[0m");
}

TerminalKey TerminalScreen::wait(Clock::time_point time)
{
    // What was typed ahead comes first.
    if (const TerminalKey key = takeKey(typed_); key != TerminalKey::none)
        return key;
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(time - Clock::now()).count();
    std::array<pollfd, 2> sources{pollfd{state.wake[0], POLLIN, 0},
                                  pollfd{hasKeys_ ? STDIN_FILENO : -1, POLLIN, 0}};
    const int ready =
        poll(sources.data(), sources.size(), static_cast<int>(std::clamp<std::int64_t>(left, 0, 1000)));
    if (ready <= 0)
        return TerminalKey::none;
    std::array<char, 64> bytes{};
    if (sources[0].revents != 0)
        while (read(state.wake[0], bytes.data(), bytes.size()) > 0) {
        }
    return sources[1].revents != 0 ? readKey() : TerminalKey::none;
}

bool TerminalScreen::isEndWanted() const { return state.endWanted; }

TerminalKey TerminalScreen::readKey()
{
    std::array<char, 64> bytes{};
    const ssize_t got = read(STDIN_FILENO, bytes.data(), bytes.size());
    if (got > 0) {
        typed_.append(bytes.data(), static_cast<std::size_t>(got));
        return takeKey(typed_);
    }
    // A terminal that has gone is always ready and gives nothing.
    return got < 0 && errno == EINTR ? TerminalKey::none : TerminalKey::quit;
}
