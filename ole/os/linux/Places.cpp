#include "os/linux/Places.h"

#include "os/linux/FileSystemKinds.h"
#include "os/linux/PathText.h"

#include <limits.h>
#include <unistd.h>

#include <cerrno>
#include <deque>

namespace os {

namespace {

std::string absolutePath(const std::string& path)
{
    if (path.starts_with('/'))
        return path;
    char folder[PATH_MAX];
    return ::getcwd(folder, sizeof folder) ? std::string(folder) + '/' + path : "/" + path;
}

// One walk along a path.
class Walk
{
public:
    Walk(std::shared_ptr<const MountTable> table, const std::string& path)
    {
        place_.table = std::move(table);
        prepend(path);
    }

    Place run()
    {
        place_.exists = true;
        const MountEntry* root = place_.table->find("/");
        if (root && mayHang(root->fsType))
            stopAt(*root, "");
        while (!pending_.empty() && place_.exists && !place_.server)
            enter(next());
        if (!place_.server)
            settle();
        return place_;
    }

private:
    std::string next()
    {
        std::string component = std::move(pending_.front());
        pending_.pop_front();
        return component;
    }

    void prepend(const std::string& path)
    {
        const std::vector<std::string> components = pathComponents(path);
        pending_.insert(pending_.begin(), components.begin(), components.end());
    }

    void enter(const std::string& component)
    {
        if (component == "..") {
            done_.resize(done_.empty() ? 0 : done_.rfind('/'));
            return;
        }
        const std::string path = done_ + '/' + component;
        const MountEntry* mount = place_.table->find(path);
        if (mount && mayHang(mount->fsType))
            stopAt(*mount, path);
        else
            look(path);
    }

    // No question may be asked from here on. A mount further down may still be told from the text.
    void stopAt(const MountEntry& server, std::string path)
    {
        place_.server = &server;
        place_.path = withPending(std::move(path));
        place_.mount = place_.table->find(place_.path);
    }

    void settle()
    {
        place_.mount = place_.table->find(done_.empty() ? "/" : done_);
        place_.path = withPending(done_);
    }

    [[nodiscard]] std::string withPending(std::string path) const
    {
        for (const std::string& component : pending_)
            path += '/' + component;
        return path.empty() ? "/" : path;
    }

    void look(const std::string& path)
    {
        char target[PATH_MAX];
        const ssize_t length = ::readlink(path.c_str(), target, sizeof target);
        if (length < 0) {
            place_.exists = errno == EINVAL;  // there, and no link
            if (place_.exists)
                done_ = path;
            else
                pending_.push_front(splitPath(path).name);
            return;
        }
        place_.exists = ++links_ <= linksMax;
        const std::string text(target, static_cast<std::size_t>(length));
        if (text.starts_with('/'))
            done_.clear();
        prepend(text);
    }

    static constexpr int linksMax = 40;  // as the kernel

    Place place_;
    std::string done_;  // without links and without trailing separator
    std::deque<std::string> pending_;
    int links_ = 0;
};

}  // namespace

std::string laneName(const MountEntry& mount) { return std::to_string(mount.id) + ':' + mount.mountPoint; }

Place Places::find(const std::string& path) const
{
    return Walk(mounts_.current(), absolutePath(path)).run();
}

}  // namespace os
