// fault_fs: a user-space file system over a folder that fails on command.
//
//   fault_fs RULES FOLDER [FUSE OPTIONS] MOUNTPOINT
//
// RULES is a file that may change at any moment (replace it by renaming). Each line is a rule:
//   OPERATION PART ACTION [NUMBER]
// OPERATION: a name of the table at the end, or *. PART: a part of the path, or *. The first rule that fits
// an operation decides:
//   hang        answers when the rule has gone, or after a minute and a half: tests must end
//   delay MS    answers so much later
//   error E     fails with this errno
//   short N     reads or writes N bytes at most
//   lost        answers when the rule has gone, and reads or writes nothing
//   blocks N    a volume of N free blocks of 4096 bytes (statfs)
// What a rule did is appended to RULES.fired: OPERATION PATH ACTION. The server ends with the process that
// started it. With $FAULT_FS_DIRECT every read and write reaches it, past the memory of the kernel.

#define FUSE_USE_VERSION 31

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <fstream>
#include <fuse3/fuse.h>
#include <mutex>
#include <optional>
#include <sstream>
#include <string>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

struct Rule
{
    std::string operation;
    std::string part;
    std::string action;
    long number = 0;
};

std::string rulesFile;
std::string root;

std::vector<Rule> readRules()
{
    std::vector<Rule> rules;
    std::ifstream file(rulesFile);
    for (std::string line; std::getline(file, line);) {
        std::istringstream words(line);
        Rule rule;
        if (words >> rule.operation >> rule.part >> rule.action) {
            words >> rule.number;
            rules.push_back(rule);
        }
    }
    return rules;
}

std::optional<Rule> ruleFor(const std::string& operation, const std::string& path)
{
    for (Rule& rule : readRules())
        if ((rule.operation == "*" || rule.operation == operation) &&
            (rule.part == "*" || path.find(rule.part) != std::string::npos))
            return std::move(rule);
    return std::nullopt;
}

void note(const std::string& operation, const std::string& path, const Rule& rule)
{
    static std::mutex lock;
    const std::lock_guard<std::mutex> hold(lock);
    std::ofstream(rulesFile + ".fired", std::ios::app)
        << operation << ' ' << path << ' ' << rule.action << '\n';
}

// Until the rule has gone.
void hang(const std::string& operation, const std::string& path, const std::string& action)
{
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(90);
    while (std::chrono::steady_clock::now() < end) {
        const auto rule = ruleFor(operation, path);
        if (!rule || rule->action != action)
            return;
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
}

// What an operation begins with: 0, or a negated errno. *bytes is cut where a rule says so.
int suffer(const char* operation, const char* path, std::size_t* bytes = nullptr)
{
    const auto rule = ruleFor(operation, path);
    if (!rule)
        return 0;
    note(operation, path, *rule);
    if (rule->action == "hang" || rule->action == "lost")
        hang(operation, path, rule->action);
    else if (rule->action == "delay")
        std::this_thread::sleep_for(std::chrono::milliseconds(rule->number));
    else if (rule->action == "error")
        return -static_cast<int>(rule->number);
    else if (rule->action == "short" && bytes)
        *bytes = std::min(*bytes, static_cast<std::size_t>(rule->number));
    if (rule->action == "lost" && bytes)
        *bytes = 0;
    return 0;
}

std::string at(const char* path) { return root + path; }

int answer(long result) { return result < 0 ? -errno : static_cast<int>(result); }

int fdOf(const fuse_file_info* file) { return static_cast<int>(file->fh); }

// A process that waits for this server cannot end, so that a signal at its end would come too late.
void endWithParent()
{
    std::thread([parent = ::getppid()] {
        while (::getppid() == parent)
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
        ::_exit(0);
    }).detach();
}

void* start(fuse_conn_info*, fuse_config* config)
{
    endWithParent();
    // Nothing is answered by the kernel in our place.
    config->entry_timeout = 0;
    config->attr_timeout = 0;
    config->negative_timeout = 0;
    config->use_ino = 1;
    config->direct_io = std::getenv("FAULT_FS_DIRECT") ? 1 : 0;
    return nullptr;
}

int getAttributes(const char* path, struct stat* status, fuse_file_info* file)
{
    if (const int error = suffer("getattr", path))
        return error;
    return answer(file ? ::fstat(fdOf(file), status) : ::lstat(at(path).c_str(), status));
}

int readLink(const char* path, char* text, std::size_t size)
{
    const ssize_t length = ::readlink(at(path).c_str(), text, size - 1);
    if (length < 0)
        return -errno;
    text[length] = '\0';
    return 0;
}

int makeFolder(const char* path, mode_t mode)
{
    const int error = suffer("mkdir", path);
    return error != 0 ? error : answer(::mkdir(at(path).c_str(), mode));
}

int removeFile(const char* path)
{
    const int error = suffer("unlink", path);
    return error != 0 ? error : answer(::unlink(at(path).c_str()));
}

int removeFolder(const char* path)
{
    const int error = suffer("rmdir", path);
    return error != 0 ? error : answer(::rmdir(at(path).c_str()));
}

int renamePath(const char* from, const char* to, unsigned flags)
{
    const int error = suffer("rename", from);
    return error != 0 ? error
                      : answer(::renameat2(AT_FDCWD, at(from).c_str(), AT_FDCWD, at(to).c_str(), flags));
}

int changeOwner(const char* path, uid_t user, gid_t group, fuse_file_info*)
{
    const int error = suffer("chown", path);
    return error != 0 ? error : answer(::lchown(at(path).c_str(), user, group));
}

int cut(const char* path, off_t size, fuse_file_info*)
{
    const int error = suffer("truncate", path);
    return error != 0 ? error : answer(::truncate(at(path).c_str(), size));
}

int openFile(const char* path, fuse_file_info* file)
{
    if (const int error = suffer("open", path))
        return error;
    // How a client means to read is not the business of this server, nor of a secure shell.
    const int fd = ::open(at(path).c_str(), file->flags & ~(O_NOFOLLOW | O_DIRECT));
    if (fd < 0)
        return -errno;
    file->fh = static_cast<std::uint64_t>(fd);
    return 0;
}

int createFile(const char* path, mode_t mode, fuse_file_info* file)
{
    if (const int error = suffer("create", path))
        return error;
    const int fd = ::open(at(path).c_str(), file->flags | O_CREAT, mode);
    if (fd < 0)
        return -errno;
    file->fh = static_cast<std::uint64_t>(fd);
    return 0;
}

int readFile(const char* path, char* memory, std::size_t size, off_t position, fuse_file_info* file)
{
    const int error = suffer("read", path, &size);
    return error != 0 ? error : answer(::pread(fdOf(file), memory, size, position));
}

int writeFile(const char* path, const char* memory, std::size_t size, off_t position, fuse_file_info* file)
{
    const int error = suffer("write", path, &size);
    return error != 0 ? error : answer(::pwrite(fdOf(file), memory, size, position));
}

int measure(const char* path, struct statvfs* info)
{
    const auto rule = ruleFor("statfs", path);
    const int error = suffer("statfs", path);
    if (error != 0 || ::statvfs(at(path).c_str(), info) != 0)
        return error != 0 ? error : -errno;
    if (rule && rule->action == "blocks") {
        info->f_bsize = info->f_frsize = 4096;
        info->f_blocks = info->f_bfree = info->f_bavail = static_cast<fsblkcnt_t>(rule->number);
    }
    return 0;
}

int flushHandle(const char* path, fuse_file_info*) { return suffer("flush", path); }

int releaseFile(const char* path, fuse_file_info* file)
{
    static_cast<void>(suffer("release", path));
    ::close(fdOf(file));
    return 0;
}

int syncFile(const char* path, int, fuse_file_info* file)
{
    const int error = suffer("fsync", path);
    return error != 0 ? error : answer(::fsync(fdOf(file)));
}

int syncFolder(const char* path, int, fuse_file_info*) { return suffer("fsyncdir", path); }

int openFolder(const char* path, fuse_file_info*) { return suffer("opendir", path); }

int listFolder(const char* path, void* into, fuse_fill_dir_t add, off_t, fuse_file_info*, fuse_readdir_flags)
{
    if (const int error = suffer("readdir", path))
        return error;
    DIR* const folder = ::opendir(at(path).c_str());
    if (!folder)
        return -errno;
    while (const dirent* item = ::readdir(folder)) {
        struct stat status = {};
        status.st_ino = item->d_ino;
        status.st_mode = static_cast<mode_t>(item->d_type) << 12;
        add(into, item->d_name, &status, 0, fuse_fill_dir_flags(0));
    }
    ::closedir(folder);
    return 0;
}

int mayAccess(const char* path, int mode)
{
    const int error = suffer("access", path);
    return error != 0 ? error : answer(::access(at(path).c_str(), mode));
}

}  // namespace

int main(int count, char** words)
{
    if (count < 4) {
        std::fprintf(stderr, "usage: fault_fs RULES FOLDER [FUSE OPTIONS] MOUNTPOINT\n");
        return 2;
    }
    rulesFile = words[1];
    root = words[2];
    fuse_operations operations = {};
    operations.init = start;
    operations.getattr = getAttributes;
    operations.readlink = readLink;
    operations.mkdir = makeFolder;
    operations.unlink = removeFile;
    operations.rmdir = removeFolder;
    operations.rename = renamePath;
    operations.chown = changeOwner;
    operations.truncate = cut;
    operations.open = openFile;
    operations.create = createFile;
    operations.read = readFile;
    operations.write = writeFile;
    operations.statfs = measure;
    operations.flush = flushHandle;
    operations.release = releaseFile;
    operations.fsync = syncFile;
    operations.fsyncdir = syncFolder;
    operations.opendir = openFolder;
    operations.readdir = listFolder;
    operations.access = mayAccess;
    std::vector<char*> arguments{words[0]};
    arguments.insert(arguments.end(), words + 3, words + count);
    return fuse_main(static_cast<int>(arguments.size()), arguments.data(), &operations, nullptr);
}
