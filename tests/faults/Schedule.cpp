#include "Schedule.h"

#include "Qz/Utf8.h"
#include "ScenarioHelpers.h"
#include "fsys/MaterialLink.h"

#include <algorithm>
#include <cerrno>
#include <set>

namespace {

using fake::Op;

constexpr unsigned stepsMax = 130;
constexpr unsigned readFiles = 3;
constexpr unsigned writeFiles = 3;
constexpr std::size_t sharedBytes = 4 << 20;
constexpr std::size_t historyShown = 40;
constexpr double tickMs = 9;

const std::string& noise()
{
    static const std::string bytes = mediaBytes(sharedBytes, 99);
    return bytes;
}

}  // namespace

// One request, and the calls that it got.
struct Schedule::Request
{
    unsigned number = 0;
    OpenFile* file = nullptr;  // null once it has closed
    bool reads = true;
    LightweightString<wchar_t> path;
    unsigned fileNumber = 0;
    std::uint64_t position = 0;
    unsigned bytes = 0;
    unsigned calls = 0;
    bool accepted = false;
    bool inCall = false;    // the call that asks has not come back
    bool hasEnded = false;  // its transfer, well or not
    bool endedWell = false;
    bool mayBeDropped = false;  // its file has closed
};

class Schedule::Caller : public iObject
{
public:
    Caller(Schedule& schedule, Request& request) : schedule_(schedule), request_(request) {}
    static void completed(Qz::Ptr<iObject>& context, Qz::Ptr<iMemHolder>& data, RequestStatus status)
    {
        auto& self = static_cast<Caller&>(*context);
        self.schedule_.answered(self.request_, data, status);
    }

private:
    Schedule& schedule_;
    Request& request_;
};

Schedule::Counts& Schedule::Counts::operator+=(const Counts& other)
{
    requests += other.requests;
    transfers += other.transfers;
    faults += other.faults;
    merged += other.merged;
    bytesChecked += other.bytesChecked;
    return *this;
}

Schedule::Schedule(std::uint64_t seed) : numbers_(seed), installed_(os_), memory_(noise())
{
    os_.files().addDrive(L"/m/");
    for (unsigned i = 0; i < readFiles; ++i) {
        const std::size_t size = 3000 + upTo(120'000);
        readable_[i] = noise().substr(upTo(1'000'000), size);
        os_.files().addFile(pathOf(false, i), readable_[i]);
    }
    stalls_ = chance(20) ? 90 : upTo(40);
    faulty_ = chance(30) ? 0 : upTo(25);
    FsysInitialize();
    FsysError = 1;
    os_.clock().setIdleHandler([this] {
        stepWhileWaiting();
        return false;
    });
    plan();
}

Schedule::~Schedule() { os_.clock().setIdleHandler({}); }

// While a caller sleeps or waits the world goes on by the clock.
void Schedule::plan()
{
    os_.clock().after(tickMs, [this] {
        if (waiting_ != 0)
            stepWhileWaiting();
        plan();
    });
}

// --- helpers

LightweightString<wchar_t> Schedule::pathOf(bool writes, unsigned number)
{
    return LightweightString<wchar_t>((writes ? L"/m/Material/w" : L"/m/Material/r") +
                                      std::to_wstring(number));
}

std::string Schedule::fresh(std::size_t size) { return noise().substr(upTo(1'000'000), size); }

Schedule::OpenFile* Schedule::pick(bool writes)
{
    std::vector<OpenFile*> candidates;
    for (const auto& file : files_)
        if (file->writes == writes && !file->busy)
            candidates.push_back(file.get());
    return candidates.empty() ? nullptr : candidates[upTo(static_cast<unsigned>(candidates.size()) - 1)];
}

void Schedule::note(const std::string& what)
{
    const std::lock_guard<std::recursive_mutex> hold(guard_);
    history_.push_back(what);
}

void Schedule::fail(const std::string& what)
{
    const std::lock_guard<std::recursive_mutex> hold(guard_);
    if (wrong_.empty())
        wrong_ = what;
    note("!!! " + what);
}

void Schedule::check(bool holds, const char* promise)
{
    if (!holds)
        fail(promise);
}

Qz::Ptr<iObject> Schedule::newCaller(OpenFile& file, std::uint64_t position, unsigned bytes)
{
    const std::lock_guard<std::recursive_mutex> hold(guard_);
    auto request = std::make_unique<Request>();
    request->number = static_cast<unsigned>(requests_.size()) + 1;
    request->file = &file;
    request->reads = !file.writes;
    request->path = pathOf(file.writes, file.number);
    request->fileNumber = file.number;
    request->position = position;
    request->bytes = bytes;
    request->inCall = true;
    requests_.push_back(std::move(request));
    ++counts_.requests;
    return Qz::Ptr<iObject>(new Caller(*this, *requests_.back()));
}

// --- what may happen

void Schedule::open()
{
    const bool writes = chance(40);
    const unsigned number = upTo((writes ? writeFiles : readFiles) - 1);
    const bool isOpen = std::any_of(files_.begin(), files_.end(), [&](const auto& file) {
        return file->writes && writes && file->number == number;
    });
    if (isOpen || files_.size() > 6)
        return;
    // A file of this size is a link.
    if (writes && os_.files().size(pathOf(true, number)) == MaterialLink::linkFileSize)
        return;
    if (writes && !os_.files().has(pathOf(true, number)))
        os_.files().addFile(pathOf(true, number), chance(50) ? "" : fresh(513 + upTo(3000)));
    auto file = std::make_unique<OpenFile>();
    file->writes = writes;
    file->number = number;
    // What is still under way since an earlier close may arrive at any time.
    for (const fake::HeldTransfer& transfer : os_.transfers().held())
        file->isExact = file->isExact && transfer.path != pathOf(writes, number);
    if (writes)
        file->model = WriteModel(os_.files().contents(pathOf(true, number)));
    const unsigned coalesce = chance(30) ? 0 : 1U << (12 + upTo(8));
    note(std::string("open ") + (writes ? "w" : "r") + std::to_string(number));
    if (FsysOpen(&file->file, pathOf(writes, number), coalesce, writes ? fsysOpenWrite : fsysOpenRead,
                 nullptr) == 1)
        files_.push_back(std::move(file));
    else
        check(os_.faults().fired() != 0, "an open fails for no reason");
}

void Schedule::read(OpenFile& file, bool fromCallback)
{
    const std::string& contents = readable_[file.number];
    const auto size = static_cast<unsigned>(contents.size());
    // Near each other, so that they join, answer each other and reach behind the end.
    const std::uint64_t position = chance(70) ? upTo(20'000) : upTo(size + 2000);
    const unsigned bytes = 1 + (chance(70) ? upTo(3000) : upTo(40'000));
    const bool coalescable = chance(60);
    const std::size_t listed = FsysFileTestAccess::reads(*file.file).size();
    const unsigned deferred = FsysFileTestAccess::deferred(*file.file);
    Qz::Ptr<iObject> context = newCaller(file, position, bytes);
    Request& request = *requests_.back();
    note("read " + std::to_string(request.number) + " of r" + std::to_string(file.number) + " " +
         std::to_string(position) + "+" + std::to_string(bytes) + (coalescable ? "c" : "") +
         (fromCallback ? " by a callback" : ""));
    // The call may answer at once.
    request.accepted = true;
    const bool asRequest = chance(15);
    const unsigned result = asRequest ? queue(file, position, bytes, coalescable, context)
                                      : file.file->DirectRead(static_cast<long>(position), bytes, coalescable,
                                                              &Caller::completed, context);
    const std::lock_guard<std::recursive_mutex> hold(guard_);
    request.inCall = false;
    request.accepted = result == 1;
    check(result == 1 || request.calls == 0, "a refused read is called back");
    if (!fromCallback)
        check(result == 1 || (result == 8 && deferred > 60) || (result == 0 && listed > 40),
              "a read is refused for no reason");
    check(result != 1 || asRequest || deferred <= 60, "a read is accepted although too many are put off");
}

// The longer way that a read can take, on which whole requests are joined.
unsigned Schedule::queue(OpenFile& file, std::uint64_t position, unsigned bytes, bool coalescable,
                         const Qz::Ptr<iObject>& context)
{
    auto* const request = new FileRequest(true, bytes, position, coalescable, false, Qz::Ptr<iMemHolder>(),
                                          file.file, &Caller::completed, context);
    if (file.file->SatisfyFromCache(request) == 1)
        return 1;
    const unsigned result = file.file->QueueReadRequest(request);
    if (result != 1)
        FileRequest::destroy(request);
    return result;
}

void Schedule::write(OpenFile& file)
{
    // Files that were once unaligned stay so, until somebody seeks.
    const bool aligned = chance(file.number == 0 ? 100 : 60);
    const unsigned size = aligned ? 512 * (1 + upTo(15)) : 1 + upTo(chance(70) ? 20'000 : 60'000);
    if (memoryUsed_ + size > memory_.size() || file.model.gatheredBytes() + size > 400'000)
        return;
    const std::string bytes = memory_.substr(memoryUsed_, size);
    auto* const start = reinterpret_cast<unsigned char*>(memory_.data()) + memoryUsed_;
    memoryUsed_ += size;
    const bool coalescable = chance(50);
    const bool synchronous = aligned && chance(10);
    const WriteModel::Way way = file.model.wayOf(size);
    const std::uint64_t position = file.model.position();
    Qz::Ptr<iObject> context = newCaller(file, position, size);
    Request& request = *requests_.back();
    note("write " + std::to_string(request.number) + " to w" + std::to_string(file.number) + " at " +
         std::to_string(position) + "+" + std::to_string(size) + (coalescable ? "c" : "") +
         (synchronous ? "s" : "") + (way == WriteModel::Way::direct ? "" : " gathered"));
    const std::size_t listed = FsysFileTestAccess::writes(*file.file).size();
    request.accepted = true;
    if (way == WriteModel::Way::direct) {
        file.model.writeDirect(request.number, bytes);
    } else {
        file.model.gather(bytes);
        if (way == WriteModel::Way::overflows)
            file.model.beginOverflow(request.number);
    }
    file.busy = true;
    ++waiting_;
    Qz::Ptr<iMemHolder> data(new TestWindow(start, size));
    const unsigned result =
        file.file->DirectWrite(data, coalescable, &Caller::completed, context, synchronous);
    --waiting_;
    file.busy = false;
    const std::lock_guard<std::recursive_mutex> hold(guard_);
    request.inCall = false;
    request.accepted = result == 1;
    if (result != 1) {
        // A full list after all tries. What the model believes of this file is not worth more steps.
        const bool hasCache = FsysFileTestAccess::cache(*file.file)->getBuffer() != nullptr;
        check(listed > 30 || FsysFileTestAccess::writes(*file.file).size() > 30 ||
                  (!hasCache && way != WriteModel::Way::direct),
              "a write is refused for no reason");
        check(request.calls == 0, "a refused write is called back");
        file.model.refused(request.number);
        file.isExact = false;
        return;
    }
    if (way == WriteModel::Way::overflows)
        file.model.endOverflow();
    if (way != WriteModel::Way::direct)
        check(request.calls == 1, "a gathered write is not called back at once");
}

void Schedule::writeNow(OpenFile& file)
{
    const std::string bytes = fresh(1 + upTo(3000));
    note("write now to w" + std::to_string(file.number) + " " + std::to_string(bytes.size()));
    check(file.file->Write(bytes.data(), static_cast<unsigned>(bytes.size())) == 1,
          "a write fails for no reason");
    file.model.write(bytes);
}

void Schedule::seek(OpenFile& file)
{
    // Behind everything, so that no two requests of one place are under way together.
    std::uint64_t end =
        std::max<std::uint64_t>(file.model.position() + file.model.gatheredBytes(), file.model.disk().size());
    for (const WriteModel::Pending& request : file.model.pending())
        end = std::max(end, request.position + request.bytes.size());
    end += 600 + upTo(3000);
    if (chance(60))
        end -= end % 512;
    note("seek in w" + std::to_string(file.number) + " to " + std::to_string(end));
    check(file.file->Seek(static_cast<long>(end), eSeekAbsolute) == 1, "a seek fails");
    file.model.seek(end);
}

void Schedule::forgetFile(OpenFile& file, bool exact)
{
    const std::lock_guard<std::recursive_mutex> hold(guard_);
    for (const auto& request : requests_)
        if (request->file == &file) {
            request->file = nullptr;
            request->mayBeDropped = true;
        }
    if (!file.writes || !exact)
        return;
    const std::string difference = file.model.differenceTo(os_.files().contents(pathOf(true, file.number)));
    if (!difference.empty())
        fail("w" + std::to_string(file.number) + " after its close: " + difference);
    counts_.bytesChecked += file.model.disk().size();
}

void Schedule::close(OpenFile& file)
{
    note(std::string("close ") + (file.writes ? "w" : "r") + std::to_string(file.number));
    file.busy = true;
    ++waiting_;
    file.model.close();
    check(FsysClose(file.file, nullptr) == 1, "a file does not close");
    --waiting_;
    forgetFile(file, file.isExact);
    std::erase_if(files_, [&](const auto& one) { return one.get() == &file; });
}

void Schedule::pass()
{
    const unsigned before = os_.transfers().accepted();
    if (chance(50))
        FsysTestAccess::readPoll().Polltasks();
    else
        FsysTestAccess::writePoll().Polltasks();
    if (const unsigned started = os_.transfers().accepted() - before; started != 0) {
        note("a pass starts " + std::to_string(started));
        counts_.transfers += started;
    }
}

void Schedule::endTransfer()
{
    const auto held = os_.transfers().held();
    if (held.empty())
        return;
    const auto index = upTo(static_cast<unsigned>(held.size()) - 1);
    const fake::HeldTransfer& transfer = held[index];
    fake::Outcome outcome;
    if (chance(faulty_)) {
        ++counts_.faults;
        const bool cutShort = transfer.isRead && chance(40);
        outcome.error = cutShort ? 0 : errorFromErrno(chance(50) ? EIO : ENOSPC);
        outcome.bytes = chance(40) ? 0 : upTo(static_cast<unsigned>(transfer.length));
        if (cutShort && outcome.bytes == 0)
            outcome.bytes = 1;
    }
    judgeTransfer(transfer, outcome);
    os_.transfers().startAt(index, outcome);
    os_.transfers().join();
}

void Schedule::stepWhileWaiting()
{
    if (idle_ || ending_)
        return;
    idle_ = true;
    if (!chance(stalls_))
        endTransfer();
    if (chance(60))
        pass();
    if (waiting_ < 3 && chance(20)) {
        if (OpenFile* const file = pick(false))
            read(*file, false);
    }
    idle_ = false;
}

void Schedule::step()
{
    const unsigned what = upTo(99);
    if (what < 30) {
        if (OpenFile* const file = pick(false))
            for (unsigned i = upTo(4); i != 0; --i)
                read(*file, false);
    } else if (what < 50) {
        if (OpenFile* const file = pick(true))
            for (unsigned i = upTo(5); i != 0 && file->isExact; --i)
                write(*file);
    } else if (what < 54) {
        if (OpenFile* const file = pick(true))
            chance(50) ? writeNow(*file) : seek(*file);
    } else if (what < 68) {
        pass();
    } else if (what < 85) {
        endTransfer();
    } else if (what < 90 || files_.size() < 3) {
        open();
    } else if (what < 92) {
        if (OpenFile* const file = pick(chance(50)))
            close(*file);
    } else if (what < 94) {
        const bool immediate = chance(50);
        note(immediate ? "requests start at once" : "requests may be put off");
        FsysSetImmediateRequestHandling(immediate);
    } else if (what < 96) {
        os_.clock().advance(upTo(200));
    } else if (what < 97 && faulty_ != 0) {
        const Op op = chance(30) ? Op::allocatePages : chance(50) ? Op::asyncRead : Op::asyncWrite;
        note(std::string("the next ") + fake::nameOf(op) + " fails");
        ++counts_.faults;
        os_.faults().failNext(op, errorFromErrno(ENOMEM), chance(20) ? 45 : 1);
    } else if (what < 98) {
        if (OpenFile* const file = pick(chance(50)))
            FsysSetCoalesceLength(file->file, 1U << (10 + upTo(10)));
    } else if (what == 99 && chance(15)) {
        endEngine();
        FsysInitialize();
    }
}

// Every second file stays open by rule and belongs to its opener.
void Schedule::endEngine()
{
    note("the engine ends");
    std::set<FsysFile*> closed;
    for (const auto* const list : {&FsysTestAccess::readFiles(), &FsysTestAccess::writeFiles()})
        for (unsigned i = 0; i < list->size(); i += 2)
            closed.insert((*list)[i]);
    for (const fake::HeldTransfer& transfer : os_.transfers().held())
        judgeTransfer(transfer, {});
    ending_ = true;
    FsysUninitialize(Shutdown::eNormalExit);
    ending_ = false;
    check(os_.transfers().heldCount() == 0, "transfers are left when the engine has ended");
    for (const auto& file : files_) {
        if (!closed.contains(file->file))
            FsysFile::release(file->file);
        else
            file->model.close();
        forgetFile(*file, file->isExact);
    }
    files_.clear();
    check(os_.live() == fake::Live{}, "something is left when the engine has ended");
}

// Everything that is under way ends well; afterwards all that was accepted has been answered.
void Schedule::settleAll()
{
    note("all that is under way ends");
    os_.faults().clear();
    for (unsigned rounds = 0; rounds < 60; ++rounds) {
        FsysTestAccess::readPoll().Polltasks();
        FsysTestAccess::writePoll().Polltasks();
        for (auto held = os_.transfers().held(); !held.empty(); held = os_.transfers().held()) {
            judgeTransfer(held[0], {});
            os_.transfers().completeNext();
        }
    }
    for (const auto& request : requests_)
        if (request->accepted && !request->mayBeDropped && request->calls != 1)
            fail("request " + std::to_string(request->number) + " is called back " +
                 std::to_string(request->calls) + " times");
    for (const auto& file : files_)
        if (file->writes && file->isExact) {
            check(file->model.pending().empty(), "a write has never reached the disk");
            const std::string now = os_.files().contents(pathOf(true, file->number));
            if (const std::string difference = file->model.differenceTo(now); !difference.empty())
                fail("w" + std::to_string(file->number) + ": " + difference);
        }
    checkCounts();
}

std::string Schedule::run()
{
    FsysSetImmediateRequestHandling(chance(40));
    for (unsigned i = 0; i < 8; ++i)
        open();
    for (unsigned i = 0; i < stepsMax && wrong_.empty(); ++i) {
        step();
        checkCounts();
    }
    FsysSetImmediateRequestHandling(true);
    if (wrong_.empty())
        settleAll();
    const bool closesAll = chance(70);
    while (closesAll && !files_.empty())
        close(*files_.front());
    endEngine();
    if (wrong_.empty())
        return {};
    std::string text = wrong_ + "\n";
    const std::size_t from = history_.size() > historyShown ? history_.size() - historyShown : 0;
    for (std::size_t i = from; i < history_.size(); ++i)
        text += "    " + history_[i] + "\n";
    return text;
}

// --- the oracle

void Schedule::answered(Request& request, const Qz::Ptr<iMemHolder>& data, RequestStatus status)
{
    const std::lock_guard<std::recursive_mutex> hold(guard_);
    note("  answer " + std::to_string(request.number) + (status == eRequestSuccess ? " well" : " failed"));
    check(++request.calls == 1, "a request is called back twice");
    check(request.accepted, "a refused request is called back");
    check(!request.mayBeDropped, "a request is called back after its file has closed");
    if (request.reads && status == eRequestSuccess) {
        checkData(request, data);
    } else if (request.reads) {
        check(!data, "a failed read brings data");
        const bool hasReason = os_.faults().fired() != 0 ||
                               std::any_of(damages_.begin(), damages_.end(), [&](const Damage& damage) {
                                   return damage.path == request.path &&
                                          damage.from < request.position + request.bytes &&
                                          damage.to > request.position;
                               });
        check(hasReason, "a read fails for no reason");
    } else {
        check(static_cast<bool>(data) == (status == eRequestSuccess), "data and failure, or neither");
        check(request.hasEnded || request.inCall || os_.faults().fired() != 0,
              "a write is answered before it has been carried out");
        if (request.hasEnded)
            check(request.endedWell == (status == eRequestSuccess),
                  "the answer is not what became of the write");
        else if (status != eRequestSuccess && request.file)
            request.file->model.refused(request.number);
    }
    if (!ending_ && request.file && request.reads && !request.file->busy && requests_.size() < 900 &&
        chance(10))
        read(*request.file, true);
}

// The engine tells of a range behind the end as if it had been read; its bytes are zero.
void Schedule::checkData(const Request& request, const Qz::Ptr<iMemHolder>& data)
{
    const unsigned char* const bytes = data ? data->getBuffer() : nullptr;
    check(bytes && data->getSize() == request.bytes, "a read that succeeds has not its bytes");
    if (!bytes)
        return;
    const std::string& contents = readable_[request.fileNumber];
    for (unsigned i = 0; i < request.bytes; ++i) {
        const std::uint64_t at = request.position + i;
        const auto right = at < contents.size() ? static_cast<unsigned char>(contents[at]) : 0U;
        if (bytes[i] == right)
            continue;
        const bool mayBeMissing =
            bytes[i] == 0 && std::any_of(damages_.begin(), damages_.end(), [&](const Damage& damage) {
                return damage.cutShort && damage.path == request.path && damage.from <= at && at < damage.to;
            });
        if (!mayBeMissing)
            return fail("read " + std::to_string(request.number) + " has a wrong byte at " +
                        std::to_string(at));
    }
    counts_.bytesChecked += request.bytes;
}

void Schedule::judgeTransfer(const fake::HeldTransfer& transfer, const fake::Outcome& outcome)
{
    const std::lock_guard<std::recursive_mutex> hold(guard_);
    const std::size_t moved = std::min(transfer.length, outcome.bytes);
    note("transfer of " + std::string(toUTF8(transfer.path).c_str()) + " " +
         std::to_string(transfer.position) + "+" + std::to_string(transfer.length) +
         (outcome.error != 0 ? " fails" : " ends") + " after " + std::to_string(moved));
    if (transfer.isRead) {
        noteDamage(transfer, outcome.error != 0, moved);
        return;
    }
    for (const auto& file : files_) {
        if (!file->writes || pathOf(true, file->number) != transfer.path)
            continue;
        std::vector<unsigned> callers;
        const std::string wrong = file->model.transferred(transfer.position, transfer.length, moved, callers);
        if (!wrong.empty() && file->isExact)
            fail("w" + std::to_string(file->number) + ": " + wrong);
        counts_.merged += callers.size() > 1 ? 1U : 0U;
        for (const unsigned caller : callers) {
            if (caller == 0)
                continue;
            requests_[caller - 1]->hasEnded = true;
            requests_[caller - 1]->endedWell = outcome.error == 0;
        }
    }
}

// Of requests that share a transfer which comes short, the first that it did not reach and all that were
// joined after that one fail, wherever they lie.
void Schedule::noteDamage(const fake::HeldTransfer& transfer, bool failed, std::size_t moved)
{
    const std::uint64_t end = transfer.position + transfer.length;
    const std::uint64_t reached = transfer.position + moved;
    std::uint64_t size = 0;
    for (const auto& [number, contents] : readable_)
        if (pathOf(false, number) == transfer.path)
            size = contents.size();
    if (failed || std::min(reached, size) < end)
        damages_.push_back({transfer.path, transfer.position, end, false});
    if (!failed && reached < end)
        damages_.push_back({transfer.path, reached, end, true});
}

void Schedule::checkCounts()
{
    if (!wrong_.empty())
        return;
    std::set<const void*> listed;
    unsigned pages = 0;
    unsigned contexts = 0;
    for (const auto& file : files_) {
        std::uint32_t outstanding = 0;
        auto& list =
            file->writes ? FsysFileTestAccess::writes(*file->file) : FsysFileTestAccess::reads(*file->file);
        for (FileRequest* const request : list) {
            listed.insert(request);
            const auto status = request->status();
            if (status == FileRequest::QUEUED || status == FileRequest::STARTED ||
                status == FileRequest::FAILED)
                outstanding += FileRequestTestAccess::byteCount(*request);
            check(status != FileRequest::NEW && status != FileRequest::COMPLETING &&
                      status != FileRequest::SLOW,
                  "a request is listed in a state that does not last");
            contexts += FileRequestTestAccess::hasContext(*request) ? 1U : 0U;
            pages += !file->writes && FileRequestTestAccess::buffer(*request) ? 1U : 0U;
        }
        pages += file->writes && FsysFileTestAccess::cache(*file->file)->getBuffer() ? 1U : 0U;
        check(outstanding ==
                  (file->writes ? file->file->writeBytesOutstanding() : file->file->readBytesOutstanding()),
              "outstanding bytes are not those of the requests under way");
    }
    for (const fake::HeldTransfer& transfer : os_.transfers().held())
        if (!listed.contains(transfer.owner)) {
            ++contexts;
            pages += transfer.isRead ? 1U : 0U;
        }
    const fake::Live live = os_.live();
    check(live.files == 2 * files_.size(), "handles are not two for each open file");
    check(live.pages == pages, "memory is not that of the buffers in use");
    check(live.contexts == contexts, "contexts are not those of the requests");
}
