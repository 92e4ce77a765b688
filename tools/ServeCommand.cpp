#include "ServeCommand.h"

#include "Help.h"
#include "Interruption.h"
#include "MediaStateKeeper.h"
#include "Metrics.h"
#include "RequestHead.h"
#include "Session.h"
#include "WebFiles.h"
#include "WebServer.h"
#include "os/OS.h"

#include <cerrno>
#include <memory>
#include <mutex>
#include <system_error>

#include <arpa/inet.h>

namespace {

using Clock = std::chrono::steady_clock;

constexpr int portMax = 65535;
constexpr auto gatheringInterval = std::chrono::seconds(1);
constexpr const char* jsonType = "application/json; charset=utf-8";

struct ServeArguments
{
    int port = 8437;
    std::string address = "127.0.0.1";
    std::uint64_t rate = 25'000'000;
};

// What was gathered last, for the threads that answer: they never wait for a location.
class Board
{
public:
    void put(const MediaState& state, const Json& history)
    {
        const std::string stateText = jsonLine(describeState(state));
        const std::string historyText = jsonLine(history);
        const std::string metricsText = metricsOf(state);
        const std::lock_guard guard(lock_);
        state_ = stateText;
        history_ = historyText;
        metrics_ = metricsText;
        time_ = Clock::now();
    }

    [[nodiscard]] std::string state(const std::string& machine) const
    {
        const std::lock_guard guard(lock_);
        const std::string head =
            jsonLine({{"age_seconds", age()}, {"machine", machine}, {"charts", haveCharts()}});
        return head.substr(0, head.size() - 1) + "," + state_.substr(1) + "\n";
    }

    [[nodiscard]] std::string history() const
    {
        const std::lock_guard guard(lock_);
        return history_ + "\n";
    }

    [[nodiscard]] std::string metrics(const WebServer& server) const
    {
        const std::lock_guard guard(lock_);
        Metrics own;
        own.family("fsys_state_age_seconds", "gauge", "Seconds since these figures were gathered.");
        own.sample({}, age());
        own.family("fsys_http_requests_total", "counter", "Requests that were answered.");
        own.sample({}, static_cast<double>(server.answered()));
        own.family("fsys_http_refused_total", "counter", "Connections and requests that were refused.");
        own.sample({}, static_cast<double>(server.refused()));
        return metrics_ + own.text();
    }

private:
    [[nodiscard]] double age() const { return std::chrono::duration<double>(Clock::now() - time_).count(); }

    mutable std::mutex lock_;
    std::string state_;
    std::string history_;
    std::string metrics_;
    Clock::time_point time_;
};

void addPages(WebServer& server, const Board& board)
{
    for (const WebFile& file : webFiles())
        server.add(std::string(file.path), std::string(file.type),
                   [&file] { return std::string(file.content); });
    const std::string machine = utf8(OS()->getFileManager()->getMachineName());
    server.add("/api/state", jsonType, [&board, machine] { return board.state(machine); });
    server.add("/api/history", jsonType, [&board] { return board.history(); });
    server.add("/metrics", "text/plain; version=0.0.4; charset=utf-8",
               [&board, &server] { return board.metrics(server); });
}

std::string urlOf(const std::string& address, int port)
{
    const bool isSix = address.find(':') != std::string::npos;
    return "http://" + (isSix ? "[" + address + "]" : address) + ":" + std::to_string(port) + "/";
}

// False after a message.
bool takePort(WebServer& server, ServeArguments& given)
{
    errno = 0;
    const int port = server.bind(given.address, given.port);
    if (port == 0) {
        const int reason = errno;
        const std::string why = reason == EADDRINUSE ? "another program listens there already"
                                : reason == 0        ? "the address cannot be used"
                                                     : std::generic_category().message(reason);
        complain("cannot listen on port %d of %s: %s", given.port, given.address.c_str(), why.c_str());
        return false;
    }
    given.port = port;
    if (!isLoopback(given.address))
        complain("whoever reaches %s sees the names and the state of all media here", given.address.c_str());
    return true;
}

void tellWhere(const Options& options, const ServeArguments& given)
{
    const std::string url = urlOf(given.address, given.port);
    if (options.json)
        answerJson({{"message", "serving"}, {"url", url}, {"address", given.address}, {"port", given.port}});
    else
        answer("serving on %s\n", url.c_str());
}

int serve(const Options& options, ServeArguments given)
{
    const Interruption interruption;
    // Declared before the server, whose threads read it.
    Board board;
    WebServer server;
    if (!takePort(server, given))
        return exitFailed;
    const Session session(options);
    if (session.failed())
        return exitFailed;
    MediaWatch watch(projectSpaceOf(options));
    MediaStateKeeper keeper(watch, static_cast<double>(given.rate));
    const auto gather = [&] {
        const MediaState& state = keeper.gather();
        board.put(state, keeper.history());
    };
    gather();
    addPages(server, board);
    server.start();
    tellWhere(options, given);
    for (auto next = Clock::now() + gatheringInterval; !Interruption::isWanted();) {
        watch.step();
        if (Clock::now() < next)
            continue;
        gather();
        next = Clock::now() + gatheringInterval;
    }
    server.stop();
    return exitDone;
}

std::string whyNoAddress(std::string& text)
{
    if (text == "localhost")
        text = "127.0.0.1";
    in6_addr parsed = {};
    const bool isAddress =
        inet_pton(AF_INET, text.c_str(), &parsed) == 1 || inet_pton(AF_INET6, text.c_str(), &parsed) == 1;
    return isAddress ? "" : text + " is no address of numbers, as 127.0.0.1 or ::1";
}

}  // namespace

void addServeCommand(CLI::App& app, const Options& options, Action& action)
{
    const auto given = std::make_shared<ServeArguments>();
    CLI::App* const command = app.add_subcommand(
        "serve", "A web page of locations, offline clips and recordings, until it is interrupted");
    command->add_option("--port", given->port, "port; 0 takes any that is free (default 8437)")
        ->check(CLI::Range(0, portMax));
    command
        ->add_option("--listen", given->address,
                     "address to listen on (default 127.0.0.1: this machine alone); 0.0.0.0 for all")
        ->transform(CLI::Validator(whyNoAddress, "ADDRESS"));
    command
        ->add_option("--rate", given->rate,
                     "bytes per second of a recording, for the minutes left where none is under way (default "
                     "25m)")
        ->transform(CLI::AsSizeValue(false))
        ->check(CLI::Range(std::uint64_t{1}, std::uint64_t{1} << 50));
    addHelp(
        *command,
        {.notes =
             "Nothing on the page or behind it changes anything: only GET and HEAD are answered. The page is "
             "at /, the same as JSON at /api/state, the last minutes of each location at /api/history, and "
             "text for Prometheus at /metrics. On an address of the loopback requests for other names than "
             "localhost and its addresses are refused; on any other address everybody who reaches it can "
             "read.\n"
             "State is gathered once a second, and clips less often where there are many. Rates are those of "
             "the volume's device, for all programs of this machine; where no device of this machine counts "
             "(servers, memory) there is no read rate, and the write rate is the room that has gone. A "
             "recording counts as growing for five seconds after it grew.",
         .keys =
             "message (serving), url, address, port\n"
             "of /api/state: age_seconds (of what follows), machine, charts, time (seconds since 1970), "
             "locations, clips, recordings\n"
             "of locations: id (null for one that is listed and was not reached), name, path, type (unknown, "
             "local, removable, network, optical), status (online, offline, not_responding), free_bytes, "
             "total_bytes, minutes_left (of recording, at record_rate), record_rate, slow (the volume took "
             "more than half a second to answer, or was too slow for transfers of this process), "
             "answer_seconds, read_bytes, written_bytes (of its device, since it came), read_rate, "
             "write_rate "
             "(bytes per second)\n"
             "of clips: total, whole, partly_offline, offline, offline_with_proxy, listed (the first 200 "
             "that "
             "are offline: keys of fsys status)\n"
             "of recordings: location, file, cookie, bytes, rate, growing, idle_seconds\n"
             "null stands for what is not known now",
         .done = "ended by SIGINT or SIGTERM",
         .failed = "the port is taken, or the address is none of this machine",
         .example = "fsys serve --port 8437"});
    command->callback(
        [&options, &action, given] { action = [&options, given] { return serve(options, *given); }; });
}
