// The part of FsysFile that keeps the write cache, and what a close has to wait for.

#include "Qz/Assert.h"
#include "fsys/EngineConfig.h"
#include "fsys/EngineState.h"
#include "fsys/FileRequest.h"
#include "fsys/FsysBuf.h"
#include "fsys/FsysFile.h"
#include "os/OS.h"
#include "support/Log.h"

#include <cstring>
#include <mutex>

namespace {

constexpr unsigned drainTimeoutMs = 4000;
constexpr unsigned looksPerWait = 29;

}  // namespace

void FsysFile::AllocWriteCache()
{
    writeCache_ = allocateWriteCache();
    emptyCache();
}

void FsysFile::FreeWriteCache() { writeCache_.reset(); }

unsigned FsysFile::gathered() const
{
    return writeCache_ && writeCacheFill_ ? static_cast<unsigned>(writeCacheFill_ - writeCache_->getBuffer())
                                          : 0;
}

void FsysFile::emptyCache() { writeCacheFill_ = writeCache_->getBuffer(); }

void FsysFile::CheckOutstandingWrites()
{
    // Several completions may be here at once. Whoever acted on a count that is no longer true acts again, or
    // a close would wait for its whole time limit although all is written.
    bool drained = false;
    do {
        drained = writeBytesOutstanding_ == 0;
        if (drained)
            writesDrained_->set();
        else
            writesDrained_->reset();
    } while (drained != (writeBytesOutstanding_ == 0));
}

void FsysFile::WaitForDrain()
{
    if (!writeCache_)
        return;
    if (const unsigned bytes = gathered(); bytes != 0) {
        // Deliberate: Write finds the cache still filled and writes it first, so the bytes land twice, the
        // second time right behind the first.
        position_ = writeCacheStart_;
        if (const unsigned result = Write(writeCache_->getBuffer(), bytes); result != 1)
            tellLoss(position_, bytes, result);
        emptyCache();
    }
    if (writeBytesOutstanding_ != 0 && !writesDrained_->wait(drainTimeoutMs))
        qa_splat("Timed out waiting for write completion\n", 0);
}

unsigned FsysFile::SendWriteSegBuffer()
{
    std::memset(writeSegment_->getBuffer() + writeSegmentFill_, 0, sectorSize_ - writeSegmentFill_);
    auto* sector = new FileRequest(false, sectorSize_, position_ - writeSegmentFill_, true, false,
                                   writeSegment_, this, nullptr, Qz::Ptr<iObject>());
    sector->markOrphan();
    const unsigned result = LowLevelAsyncWrite(sector);
    if (result != FileRequest::started)
        delete sector;
    return result;
}

unsigned FsysFile::ClearMemoryRefs()
{
    const std::lock_guard<CriticalSection> hold(*lock_);
    while (!readRequests_->empty()) {
        FileRequest* const request = (*readRequests_)[0];
        Qz::verify(request->isRead(), "fr->is_read_", "ole/fsys/FsysFile line 1185");
        readRequests_->removeIdx(0);
        FileRequest::destroy(request);
    }
    return 1;
}

void FsysFile::destroyRequests(Vector<FileRequest*>* list)
{
    const std::lock_guard<CriticalSection> hold(*lock_);
    while (!list->empty()) {
        FileRequest* const request = (*list)[0];
        list->removeIdx(0);
        FileRequest::destroy(request);
    }
}

void FsysFile::refuseRequests()
{
    const std::lock_guard<CriticalSection> hold(*lock_);
    closing_ = true;
}

void FsysFile::giveUpWaitingRequests()
{
    const std::lock_guard<CriticalSection> hold(*lock_);
    for (Vector<FileRequest*>* const list : {readRequests_, writeRequests_}) {
        for (unsigned i = 0; i < list->size();) {
            FileRequest* const request = (*list)[i];
            if (request->status() == FileRequest::QUEUED) {
                list->removeIdx(i);
                FileRequest::destroy(request);
            } else {
                ++i;
            }
        }
    }
}

void FsysFile::waitForRequests(const Vector<FileRequest*>* list, unsigned pauseMs)
{
    // Deliberate: every look at a request uses up the budget, ended or not, so a list that begins with
    // many finished requests ends the wait early.
    unsigned looks = looksPerWait;
    while (looks != 0) {
        bool foundPending = false;
        {
            const std::lock_guard<CriticalSection> hold(*lock_);
            for (unsigned i = 0; i < list->size() && looks != 0 && !foundPending; ++i) {
                --looks;
                foundPending = (*list)[i]->isPending();
            }
        }
        if (!foundPending)
            return;
        OS()->getClock()->sleep(pauseMs);
    }
}

unsigned FsysFile::countPending(const Vector<FileRequest*>* list) const
{
    const std::lock_guard<CriticalSection> hold(*lock_);
    unsigned pending = 0;
    for (const FileRequest* const request : *list)
        pending += request->isPending() ? 1U : 0U;
    return pending;
}
