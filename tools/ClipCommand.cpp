#include "Command.h"
#include "Help.h"
#include "Locations.h"
#include "MediaSummary.h"
#include "Session.h"

#include <memory>

namespace {

Json describeProxy(const TestedFile& proxy)
{
    Json described = describeFile(proxy);
    const std::optional<unsigned> height = proxy.proxyHeight();
    described["height"] = height ? Json(*height) : Json(nullptr);
    described["channels"] = proxy.record.getProxyAudioChannels();
    return described;
}

Json describeChannel(const TestedChannel& channel)
{
    Json proxies = Json::array();
    for (const TestedFile& proxy : channel.proxies)
        proxies.push_back(describeProxy(proxy));
    return {{"cookie", channel.cookie.asString(true).str()},
            {"kind", channel.cookie.getType() == CookieTypeVision ? "vision" : "sound"},
            {"channel", static_cast<unsigned>(channel.cookie.getChannel())},
            {"high", channel.high ? describeFile(*channel.high) : Json(nullptr)},
            {"proxies", proxies}};
}

std::uint64_t bytesOf(const MediaSummary& summary)
{
    std::uint64_t bytes = 0;
    for (const TestedChannel& channel : summary.channels)
        bytes += channel.high ? channel.high->bytes : 0;
    return bytes;
}

void answerFile(const std::string& title, const TestedFile& file)
{
    const std::string target =
        file.isLink ? "  -> " + utf8(file.target) + (file.targetExists ? "" : " (missing)") : "";
    answer("  %-28s %-8s %10s  %-16s %s%s\n", title.c_str(), statusText(file.status),
           readableBytes(static_cast<double>(file.bytes)).c_str(), labelOf(file.location()).c_str(),
           utf8(file.path).c_str(), target.c_str());
}

std::string proxyTitle(const TestedFile& proxy)
{
    const std::optional<unsigned> height = proxy.proxyHeight();
    const unsigned channels = proxy.record.getProxyAudioChannels();
    return "proxy" + (height ? " " + std::to_string(*height) + " lines" : "") +
           (channels > 0 ? ", " + std::to_string(channels) + " channels" : "");
}

void answerChannel(const TestedChannel& channel)
{
    answer("%s  %s channel %u%s\n", channel.cookie.asString(true).c_str(),
           channel.cookie.getType() == CookieTypeVision ? "vision" : "sound",
           static_cast<unsigned>(channel.cookie.getChannel()),
           channel.high ? "" : ", no full-resolution file");
    if (channel.high)
        answerFile("full resolution", *channel.high);
    for (const TestedFile& proxy : channel.proxies)
        answerFile(proxyTitle(proxy), proxy);
}

int showClip(const Options& options, const std::string& text)
{
    const Session session(options);
    if (session.failed())
        return exitFailed;
    const std::optional<Cookie> cookie = knownCookie(text);
    if (!cookie)
        return exitNo;
    const MediaSummary summary = summarise(everyChannelOf(*cookie));
    Json channels = Json::array();
    for (const TestedChannel& channel : summary.channels)
        channels.push_back(describeChannel(channel));
    if (options.json) {
        answerJson({{"cookie", cookie->asString(true).str()},
                    {"offline", summary.offline()},
                    {"proxy_online", summary.info.someProxyOnline()},
                    {"bytes", bytesOf(summary)},
                    {"primary_location", summary.primaryLocation()},
                    {"linked_location", summary.linkedLocation()},
                    {"channels", channels}});
        return exitDone;
    }
    answer("offline: %s; a proxy is online: %s; %s in full resolution", summary.offline(),
           summary.info.someProxyOnline() ? "yes" : "no",
           readableBytes(static_cast<double>(bytesOf(summary))).c_str());
    answer("; on %s%s%s\n", summary.primaryLocation().empty() ? "-" : summary.primaryLocation().c_str(),
           summary.linkedLocation().empty() ? "" : ", linked to ", summary.linkedLocation().c_str());
    for (const TestedChannel& channel : summary.channels)
        answerChannel(channel);
    return exitDone;
}

}  // namespace

void addClipCommand(CLI::App& app, const Options& options, Action& action)
{
    const auto cookie = std::make_shared<std::string>();
    CLI::App* const command = app.add_subcommand("clip", "Everything that is known of one clip");
    command->add_option("COOKIE", *cookie, "clip; any channel of it stands for all")->required();
    addHelp(*command,
            {.notes = "Every file is looked for on the disk.",
             .keys = "cookie, offline (all, some, none: of the full-resolution files; all without one), "
                     "proxy_online, bytes (of all full-resolution files), primary_location (name of the "
                     "location of the first one), linked_location (what its first link points at), channels\n"
                     "of channels: cookie, kind (vision, sound), channel (number), high (null without one), "
                     "proxies\n"
                     "of high and proxies: file, bytes (of the media; of a link those of its target, 0 when "
                     "that is missing), link, target, target_exists (both null unless link), location (id), "
                     "location_name, status (online, offline, unknown)\n"
                     "of proxies also: height (lines; null when the name tells none), channels (of audio)",
             .done = "the clip is known, also when it is offline",
             .no = "no such clip",
             .example = "fsys clip V0123456789ABCDEF00"});
    command->callback(
        [&options, &action, cookie] { action = [&options, cookie] { return showClip(options, *cookie); }; });
}
