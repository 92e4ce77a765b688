#include "Command.h"
#include "Help.h"
#include "Session.h"
#include "fsys/DiskManager.h"
#include "fsys/SystemCache.h"

#include <chrono>
#include <memory>

namespace {

int scan(const Options& options, const std::string& location)
{
    const Session session(options);
    if (session.failed())
        return exitFailed;
    const auto start = std::chrono::steady_clock::now();
    if (location.empty()) {
        SystemCache::initialise(true);
    } else {
        const std::optional<DriveId> id = findLocation(location);
        if (!id) {
            complain("%s is no media location", location.c_str());
            return exitNo;
        }
        SystemCache::invalidate();
        SystemCache::addMediaLocation(*id);
    }
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    const ScanCounts counts = SystemCache::getScanCounts();
    if (options.json)
        answerJson({{"files", counts.files},
                    {"clips", counts.clips},
                    {"proxies", counts.proxies},
                    {"skipped",
                     {{"empty", counts.skippedEmpty},
                      {"ineligible", counts.skippedIneligible},
                      {"not_a_cookie", counts.skippedNotCookie}}},
                    {"seconds", seconds}});
    else
        answer("%llu files, %llu clips, %llu proxies; skipped %llu empty, %llu ineligible, %llu that are no "
               "cookie; %.3f s\n",
               static_cast<unsigned long long>(counts.files), static_cast<unsigned long long>(counts.clips),
               static_cast<unsigned long long>(counts.proxies),
               static_cast<unsigned long long>(counts.skippedEmpty),
               static_cast<unsigned long long>(counts.skippedIneligible),
               static_cast<unsigned long long>(counts.skippedNotCookie), seconds);
    return exitDone;
}

}  // namespace

void addScanCommand(CLI::App& app, const Options& options, Action& action)
{
    const auto location = std::make_shared<std::string>();
    CLI::App* const command =
        app.add_subcommand("scan", "Indexes the media locations and counts what is there");
    command->add_option("--location", *location, "only this one: id or path")->type_name("LOCATION");
    addHelp(*command,
            {.notes = "A clip here is one cookie: each channel counts.",
             .keys = "files, clips, proxies, skipped (empty, ineligible, not_a_cookie: files), seconds",
             .no = "no such location",
             .example = "fsys scan --location 1"});
    command->callback([&options, &action, location] {
        action = [&options, location] { return scan(options, *location); };
    });
}
