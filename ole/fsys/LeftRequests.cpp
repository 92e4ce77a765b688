#include "fsys/LeftRequests.h"

#include "fsys/FileRequest.h"
#include "fsys/FsysFile.h"

#include <mutex>
#include <utility>

namespace {

struct List
{
    std::mutex guard;
    FileRequest* first = nullptr;
};

List& list()
{
    static List* const lasting = new List;  // the engine may end after static destructors
    return *lasting;
}

// Only the request still refers to the context. Giving the second reference back makes seen what those did
// that gave theirs back before.
bool hasEnded(Qz::Ptr<iAsyncContext> context)
{
    const bool ended = context->refCount() == 2;
    context.reset();
    return ended;
}

}  // namespace

void LeftRequests::add(FileRequest* request)
{
    const std::lock_guard<std::mutex> hold(list().guard);
    request->nextLeft_ = std::exchange(list().first, request);
}

void LeftRequests::remove(FileRequest* request)
{
    const std::lock_guard<std::mutex> hold(list().guard);
    for (FileRequest** link = &list().first; *link; link = &(*link)->nextLeft_)
        if (*link == request) {
            *link = request->nextLeft_;
            return;
        }
}

// One at a time, because what ends with a request may be anything.
void LeftRequests::releaseEnded()
{
    while (FileRequest* const request = takeEnded()) {
        FsysFile* const file = request->file();
        delete request;
        FsysFile::release(file);
    }
}

FileRequest* LeftRequests::takeEnded()
{
    const std::lock_guard<std::mutex> hold(list().guard);
    for (FileRequest** link = &list().first; *link; link = &(*link)->nextLeft_)
        if (hasEnded((*link)->asyncContext_))
            return std::exchange(*link, (*link)->nextLeft_);
    return nullptr;
}

unsigned LeftRequests::count()
{
    const std::lock_guard<std::mutex> hold(list().guard);
    unsigned count = 0;
    for (const FileRequest* request = list().first; request; request = request->nextLeft_)
        ++count;
    return count;
}
