#include "Demo.h"

#include "Hash.h"
#include "Importer.h"
#include "Playback.h"
#include "Progress.h"
#include "Session.h"
#include "TestMedia.h"
#include "Verify.h"
#include "fsys/DiskManager.h"
#include "fsys/MaterialLink.h"
#include "fsys/MediaFileInfo.h"
#include "fsys/MediaLocationInfo.h"
#include "fsys/SystemCache.h"
#include "media/MediaWriter.h"
#include "os/OS.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdarg>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <list>
#include <map>
#include <set>
#include <vector>

#include <unistd.h>

namespace fs = std::filesystem;

namespace {

constexpr const char* markerName = ".fsys-demo";  // says that the folder is ours to make anew
constexpr unsigned streamsPlayed = 3;
constexpr std::size_t mediaFilesMax = 200;

// A clip of the demo and what its bytes have to be.
struct Clip
{
    Cookie cookie;
    std::string what;
    std::string hash;       // of the full-resolution file, as it was written
    std::string proxyHash;  // empty when it has no proxy
};

// One row of the table at the end.
struct Row
{
    std::string cookie;
    std::string asked;
    std::string kind;
    std::string file;
    std::uint64_t bytes = 0;
    std::string hash;
    bool verified = false;
};

class Demo
{
public:
    Demo(const Options& options, DemoArguments given) : options_(options), given_(std::move(given)) {}

    int run()
    {
        root_ = given_.folder.empty() ? fs::temp_directory_path() / ("fsys-demo-" + std::to_string(getuid()))
                                      : fs::absolute(given_.folder).lexically_normal();
        if (!given_.media.empty() && !chooseMedia())
            return exitFailed;
        if (!prepareFolder() || !record() || !findAgain())
            return exitFailed;
        if (!playSome())
            return exitFailed;
        return report();
    }

private:
    // Plain words, unless a script listens.
    void tell(const char* format, ...) const __attribute__((format(printf, 2, 3)));

    [[nodiscard]] Options sessionOptions() const
    {
        Options options = options_;
        options.space = (root_ / "space").string();
        options.noDiscovery = true;
        return options;
    }

    bool prepareFolder();
    bool record();
    bool recordMade(DriveId first, DriveId second);
    [[nodiscard]] std::vector<fs::path> usersFiles() const;
    bool chooseMedia();
    bool linkUsers(DriveId first, DriveId second);
    bool recordPicture(DriveId location, const PictureFormat& format, Clip& clip, bool isProxy);
    bool findAgain();
    void tellStatus();
    bool verify(const Clip& clip, const char* asked, const DecodeFormat& format);
    bool playSome();
    int report();

    const Options& options_;
    DemoArguments given_;
    fs::path root_;
    std::vector<fs::path> media_;  // the user's files
    std::vector<Clip> clips_;
    std::vector<Row> rows_;
    std::map<std::string, ReadResult> reads_;  // by path
    std::uint64_t frameBytes_ = std::uint64_t{1} << 20;
    PlaybackResult playback_;
    ScanCounts found_;
    std::size_t online_ = 0;         // clips
    std::int32_t minutesLeft_ = -1;  // that the first location has room for
};

std::optional<DriveId> addLocation(const fs::path& folder, const std::string& name)
{
    const std::string root = folder.string() + "/";
    fs::create_directories(folder);
    DiskManager::addMediaLocation(wide(root));
    const std::optional<DriveId> id = findLocation(root);
    if (!id || !DiskManager::prepareVolumeForMedia(*id)) {
        complain("%s cannot be used as a media location", folder.c_str());
        return std::nullopt;
    }
    DiskManager::renameMediaLocation(*id, wide(name));
    return id;
}

std::string hashOfFile(const fs::path& path)
{
    Hash hash;
    std::error_code error;
    const std::uintmax_t size = fs::file_size(path, error);
    Progress progress("hash", error ? 0 : size);
    std::ifstream file(path, std::ios::binary);
    std::vector<char> bytes(std::size_t{1} << 20);
    while (file) {
        file.read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
        hash.add(bytes.data(), static_cast<std::size_t>(file.gcount()));
        progress.advance(static_cast<std::uint64_t>(file.gcount()));
    }
    return hash.text();
}

bool isSound(const fs::path& file)
{
    static const std::set<std::string> endings{".wav", ".aif", ".aiff", ".mp3", ".flac",
                                               ".ogg", ".m4a", ".aac",  ".opus"};
    std::string ending = file.extension().string();
    std::transform(ending.begin(), ending.end(), ending.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return endings.count(ending) != 0;
}

void Demo::tell(const char* format, ...) const
{
    if (options_.json)
        return;
    std::array<char, 4096> text{};
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text.data(), text.size(), format, arguments);
    va_end(arguments);
    answer("%s", text.data());
}

bool Demo::prepareFolder()
{
    std::error_code error;
    if (fs::exists(root_) && !fs::is_empty(root_, error) && !fs::exists(root_ / markerName)) {
        complain("%s is not empty and no folder of an earlier demo; name another one with --dir",
                 root_.c_str());
        return false;
    }
    for (const char* ours : {"space", "Studio A", "Archive", "Elsewhere"})
        fs::remove_all(root_ / ours, error);
    fs::create_directories(root_);
    std::ofstream(root_ / markerName) << "made by fsys demo, which makes it anew\n";
    return true;
}

bool Demo::record()
{
    const Session session(sessionOptions());
    if (session.failed())
        return false;
    const std::optional<DriveId> first = addLocation(root_ / "Studio A", "Studio A");
    const std::optional<DriveId> second = first ? addLocation(root_ / "Archive", "Archive") : std::nullopt;
    if (!second)
        return false;
    tell("In %s there is now a project space with two media locations, \"Studio A\" and \"Archive\".\n",
         root_.c_str());
    return given_.media.empty() ? recordMade(*first, *second) : linkUsers(*first, *second);
}

// Records what make produces; empty, after a message, when that failed.
template <class Make>
std::string recordWith(MediaWriter& writer, const Make& make)
{
    const bool made = writer.isOpen() && make([&](const void* data, std::size_t bytes) {
                          return writer.write({static_cast<const std::byte*>(data), bytes});
                      });
    const MediaRecording recorded = made ? writer.finish() : MediaRecording{};
    if (!recorded.complete)
        complain("cannot record %s: %s", utf8(writer.path()).c_str(), writer.error().text.c_str());
    return recorded.complete ? recorded.hash : std::string();
}

MediaWriterOptions hashed()
{
    MediaWriterOptions options;
    options.hash = true;
    return options;
}

bool Demo::recordPicture(DriveId location, const PictureFormat& format, Clip& clip, bool isProxy)
{
    ImportRequest request;
    request.file = "picture.avi";
    request.location = location;
    request.cookie = clip.cookie;
    request.isProxy = isProxy;
    request.proxyHeight = format.height;
    MediaWriter writer(clip.cookie, nameInLocation(request), hashed());
    const std::string hash =
        recordWith(writer, [&](const ByteSink& sink) { return makePicture(format, sink); });
    (isProxy ? clip.proxyHash : clip.hash) = hash;
    return !hash.empty();
}

bool Demo::recordMade(DriveId first, DriveId second)
{
    PictureFormat format;
    frameBytes_ = bytesPerFrame(format);
    for (unsigned i = 0; i < 2; ++i) {
        format.seed = i;
        Clip clip{Cookie::makeNew(), "picture " + std::to_string(i + 1), {}, {}};
        PictureFormat small = format;
        small.width /= 2;
        small.height /= 2;
        if (!recordPicture(first, format, clip, false) || !recordPicture(second, small, clip, true))
            return false;
        clips_.push_back(clip);
    }
    tell("Recorded 2 clips of 4 s, %u x %u, uncompressed, and a proxy of half the height for each.\n",
         format.width, format.height);

    Clip sound{convertCookie(Cookie::makeNew(CookieTypeSound), CookieTypeSound, 1), "sound", {}, {}};
    const MaterialFilename soundName =
        DiskManager::getDriveWithUniqueId(first).getFsysLocation(sound.cookie, L"wav");
    MediaWriter writer(sound.cookie, soundName, hashed());
    sound.hash = recordWith(writer, [](const ByteSink& sink) { return makeSound(4, sink); });
    if (sound.hash.empty())
        return false;
    clips_.push_back(sound);

    // The third picture lies outside of every location; a link file stands for it.
    const fs::path elsewhere = root_ / "Elsewhere";
    fs::create_directories(elsewhere);
    format.seed = 5;
    MediaWriter outside(wide((elsewhere / "reel 7.avi").string()), hashed());
    const std::string outsideHash =
        recordWith(outside, [&](const ByteSink& sink) { return makePicture(format, sink); });
    if (outsideHash.empty())
        return false;
    ImportRequest link;
    link.file = (elsewhere / "reel 7.avi").string();
    link.location = second;
    link.asLink = true;
    link.cookie = Cookie::makeNew();
    if (!importMedia(link))
        return false;
    clips_.push_back({link.cookie, "linked picture", outsideHash, {}});
    tell("Recorded a sound clip, and a third picture that \"Archive\" only links to.\n");
    return true;
}

std::vector<fs::path> Demo::usersFiles() const
{
    std::vector<fs::path> files;
    std::error_code error;
    for (fs::recursive_directory_iterator
             at(given_.media, fs::directory_options::skip_permission_denied, error),
         end;
         !error && at != end; at.increment(error)) {
        std::error_code ignored;
        if (at->path().filename().string().front() == '.' || fs::equivalent(at->path(), root_, ignored))
            at.disable_recursion_pending();
        else if (at->is_regular_file(ignored) && at->file_size(ignored) > MaterialLink::linkFileSize)
            files.push_back(at->path());
    }
    std::sort(files.begin(), files.end());
    return files;
}

bool Demo::chooseMedia()
{
    std::error_code error;
    const fs::path media = fs::weakly_canonical(given_.media, error);
    const fs::path ours = fs::weakly_canonical(root_, error);
    if (std::mismatch(ours.begin(), ours.end(), media.begin(), media.end()).first == ours.end()) {
        complain("%s lies in the folder that the demo makes anew", given_.media.c_str());
        return false;
    }
    media_ = usersFiles();
    if (media_.empty()) {
        complain("there are no media files in %s", given_.media.c_str());
        return false;
    }
    if (media_.size() > mediaFilesMax) {
        tell("There are %zu files in %s; the first %zu will do.\n", media_.size(), given_.media.c_str(),
             mediaFilesMax);
        media_.resize(mediaFilesMax);
    }
    return true;
}

bool Demo::linkUsers(DriveId first, DriveId second)
{
    unsigned links = 0;
    for (const fs::path& file : media_) {
        ImportRequest request;
        request.file = file.string();
        request.location = links % 2 == 0 ? first : second;
        request.asLink = true;
        request.cookie = isSound(file) ? convertCookie(Cookie::makeNew(CookieTypeSound), CookieTypeSound, 1)
                                       : Cookie::makeNew();
        if (!importMedia(request))
            continue;
        clips_.push_back({request.cookie, file.filename().string(), hashOfFile(file), {}});
        ++links;
    }
    tell("Linked %u of your files; none was copied or changed.\n", links);
    return links != 0;
}

bool Demo::verify(const Clip& clip, const char* asked, const DecodeFormat& format)
{
    const Source source = sourceOf(clip.cookie.asString(true).str(), format);
    if (source.status != exitDone)
        return false;
    // The same file answers several questions; its bytes are read once.
    auto known = reads_.find(utf8(source.path));
    if (known == reads_.end())
        known = reads_.emplace(utf8(source.path), readThrough(source, 1U << 20, 16, true)).first;
    const ReadResult& read = known->second;
    std::list<MediaFileInfo> proxies;
    SystemCache::getProxyFiles(clip.cookie, proxies);
    const bool isProxy = std::any_of(proxies.begin(), proxies.end(), [&](const MediaFileInfo& proxy) {
        return proxy.getPhysicalFilename(false) == source.path;
    });
    const bool verified = read.complete && read.hash == (isProxy ? clip.proxyHash : clip.hash);
    rows_.push_back({clip.cookie.asString(true).str(), asked, isProxy ? "proxy" : "high", utf8(source.path),
                     read.bytes, read.hash, verified});
    return true;
}

void Demo::tellStatus()
{
    std::size_t withProxy = 0;
    for (const Clip& clip : clips_) {
        std::list<MediaFileInfo> proxies;
        online_ += MediaLocationInfo::isClipOffline(clip.cookie, eHighRes | eProxy) ? 0U : 1U;
        withProxy += SystemCache::getProxyFiles(clip.cookie, proxies) && !clip.proxyHash.empty() ? 1U : 0U;
    }
    constexpr double framesPerMinute = 25 * 60;
    const std::optional<DriveId> first = findLocation((root_ / "Studio A").string());
    if (first)
        minutesLeft_ = DiskManager::get_mins_of_recording_left(
            *first, static_cast<double>(frameBytes_) * framesPerMinute, 0);
    tell("Status: %zu of %zu clips online, %zu with a proxy. \"Studio A\" has room for %d more minutes of "
         "such "
         "pictures.\n",
         online_, clips_.size(), withProxy, minutesLeft_);
}

bool Demo::findAgain()
{
    // A new session knows nothing but the project space: locations, clips and proxies come from the files.
    const Session session(sessionOptions());
    if (session.failed())
        return false;
    SystemCache::initialise(true);
    found_ = SystemCache::getScanCounts();
    tell("Forgot everything and started again from the files: %llu clips, %llu proxies.\n",
         static_cast<unsigned long long>(found_.clips), static_cast<unsigned long long>(found_.proxies));
    tellStatus();
    for (const Clip& clip : clips_) {
        bool found = verify(clip, "full resolution", DecodeFormat(eHighRes));
        found = found && verify(clip, "proxy", DecodeFormat(eProxy));
        for (const unsigned height : {120U, 180U, 270U, 1080U}) {
            const std::string asked = "automatic, " + std::to_string(height) + " lines";
            found = found && verify(clip, asked.c_str(), formatOf("auto", height));
        }
        if (!found) {
            complain("%s was not found again", clip.what.c_str());
            return false;
        }
    }
    return true;
}

bool Demo::playSome()
{
    const Session session(sessionOptions());
    if (session.failed())
        return false;
    SystemCache::initialise(true);
    PlaybackPlan plan;
    plan.frameBytes = frameBytes_;
    plan.seconds = given_.seconds;
    for (std::size_t i = 0; plan.streams.size() < streamsPlayed; ++i) {
        const Source source =
            sourceOf(clips_[i % clips_.size()].cookie.asString(true).str(), DecodeFormat(eHighRes));
        if (source.status != exitDone)
            return false;
        plan.streams.push_back(source);
    }
    playback_ = play(plan);
    if (!playback_.error.empty()) {
        complain("%s", playback_.error.c_str());
        return false;
    }
    tell("Played %u streams at 25 frames per second for %.0f s: %llu frames, %llu late.\n\n", streamsPlayed,
         given_.seconds, static_cast<unsigned long long>(playback_.framesDue),
         static_cast<unsigned long long>(playback_.framesLate));
    return true;
}

int Demo::report()
{
    const bool good = std::all_of(rows_.begin(), rows_.end(), [](const Row& row) { return row.verified; });
    if (options_.json) {
        Json files = Json::array();
        for (const Row& row : rows_)
            files.push_back({{"cookie", row.cookie},
                             {"asked", row.asked},
                             {"kind", row.kind},
                             {"file", row.file},
                             {"bytes", row.bytes},
                             {"xxh128", row.hash},
                             {"verified", row.verified}});
        answerJson({{"dir", root_.string()},
                    {"clips", found_.clips},
                    {"proxies", found_.proxies},
                    {"online", online_},
                    {"minutes_left", minutesLeft_},
                    {"frames_due", playback_.framesDue},
                    {"frames_late", playback_.framesLate},
                    {"files", files},
                    {"verified", good}});
        return good ? exitDone : exitNo;
    }
    answer("%-20s %-22s %-6s %10s  %-33s %s\n", "clip", "asked for", "got", "size", "XXH3-128", "same bytes");
    std::string last;
    for (const Row& row : rows_) {
        answer("%-20s %-22s %-6s %10s  %-33s %s\n", row.cookie == last ? "" : row.cookie.c_str(),
               row.asked.c_str(), row.kind.c_str(), readableBytes(static_cast<double>(row.bytes)).c_str(),
               row.hash.c_str(), row.verified ? "yes" : "NO");
        if (row.cookie != last)
            last = row.cookie;
    }
    answer("\n%s\nThe files are in %s; look at them with any player.\n",
           good ? "Every byte came back as it was written." : "SOME BYTES DIFFER.", root_.c_str());
    return good ? exitDone : exitNo;
}

}  // namespace

int runDemo(const Options& options, const DemoArguments& given) { return Demo(options, given).run(); }
