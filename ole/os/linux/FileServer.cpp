#include "os/linux/FileServer.h"

#include "os/Patience.h"

namespace os {

void FileServer::end(const std::function<void()>& last) const
{
    questions_->end(last, std::chrono::milliseconds(Patience::limitMs(questionLimitMs_)));
}

bool FileServer::run(CallLane& lane, std::function<void(Progress&)> work, unsigned limitMs)
{
    return lane.run(std::move(work),
                    {std::chrono::milliseconds(Patience::limitMs(limitMs)), Patience::isSet()});
}

}  // namespace os
