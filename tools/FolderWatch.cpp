#include "FolderWatch.h"

#include <algorithm>
#include <array>
#include <cstring>

#include <poll.h>
#include <sys/inotify.h>
#include <unistd.h>

FolderWatch::FolderWatch() : fd_(inotify_init1(IN_CLOEXEC | IN_NONBLOCK)) {}

FolderWatch::~FolderWatch()
{
    if (fd_ >= 0)
        close(fd_);
}

bool FolderWatch::add(const std::string& folder)
{
    // The kernel answers with the number that it gave before for a folder that it watches already.
    const int watch = inotify_add_watch(
        fd_, folder.c_str(), IN_CLOSE_WRITE | IN_MOVED_TO | IN_MOVED_FROM | IN_DELETE | IN_ONLYDIR);
    if (watch < 0) {
        remove(folder);
        return false;
    }
    const auto [known, isNew] = watches_.try_emplace(folder, watch);
    if (!isNew && known->second != watch) {
        inotify_rm_watch(fd_, known->second);
        known->second = watch;
    }
    return true;
}

void FolderWatch::remove(const std::string& folder)
{
    const auto known = watches_.find(folder);
    if (known == watches_.end())
        return;
    inotify_rm_watch(fd_, known->second);
    watches_.erase(known);
}

std::vector<FolderWatch::Change> FolderWatch::wait(int timeoutMs)
{
    std::vector<Change> changes;
    pollfd ready = {fd_, POLLIN, 0};
    if (poll(&ready, fd_ >= 0 ? 1 : 0, timeoutMs) > 0)
        readChanges(changes);
    return changes;
}

void FolderWatch::readChanges(std::vector<Change>& changes)
{
    alignas(inotify_event) std::array<char, 65536> buffer{};
    for (ssize_t bytes = 0; (bytes = read(fd_, buffer.data(), buffer.size())) > 0;) {
        for (std::size_t at = 0; at < static_cast<std::size_t>(bytes);) {
            inotify_event event = {};
            std::memcpy(&event, buffer.data() + at, sizeof event);
            const std::string name = event.len > 0 ? buffer.data() + at + sizeof event : "";
            at += sizeof event + event.len;
            // Events were lost: everything may have changed.
            for (const auto& [folder, watch] : watches_)
                if ((event.mask & IN_Q_OVERFLOW) != 0 || (watch == event.wd && !name.empty()))
                    changes.push_back({folder, name});
        }
    }
}
