// The engine on the fake platform, driven by the input: reads, writes, passes, transfers that end in any
// order, short or not at all. A model of the rules says what every caller gets and what the files hold.
//
// The input also decides whether the platform fails; where it does not, written files must be exactly the
// model's.

#include "Fuzz.h"

#include <algorithm>
#include <memory>
#include <string>
#include <thread>

#include <fuzzer/FuzzedDataProvider.h>

#include "fsys/EngineState.h"
#include "fsys/Fsys.h"
#include "fsys/FsysEntry.h"
#include "fsys/FsysPoll.h"
#include "fsys/MaterialLink.h"
#include "os/LastError.h"
#include "os/testing/FakeOS.h"

struct FsysTestAccess
{
    static unsigned readPass() { return theFsys.load()->readPoll_->Polltasks(); }
    static unsigned writePass() { return theFsys.load()->writePoll_->Polltasks(); }
};

namespace {

constexpr unsigned blockMax = 160 * 1024;
constexpr unsigned gatherLimit = 131072;
constexpr unsigned cacheBytes = 524288;

// Bytes that differ from place to place. Made once, and compared in one piece: loops over bytes are what
// takes the time here.
const std::string& allBytes()
{
    static const std::string bytes = [] {
        std::string made(4 * blockMax, '\0');
        for (std::size_t i = 0; i < made.size(); ++i)
            made[i] = static_cast<char>(i * 31 + i / 251 + 1);
        return made;
    }();
    return bytes;
}

// What a range of the file that is read holds; zeros behind its end.
std::string bytesAt(std::uint64_t position, std::size_t size, std::uint64_t fileSize)
{
    std::string bytes;
    if (position < fileSize)
        bytes = allBytes().substr(position, std::min<std::uint64_t>(size, fileSize - position));
    bytes.resize(size);
    return bytes;
}

// One call of DirectRead or DirectWrite and what became of it.
struct Request
{
    std::uint64_t position = 0;
    unsigned bytes = 0;
    bool isRead = false;
    std::uint64_t fileSize = 0;
    bool exact = true;      // no transfer ends short
    bool expected = false;  // its function will be called
    unsigned calls = 0;
};

class Context : public iObject
{
public:
    explicit Context(std::shared_ptr<Request> request) : request_(std::move(request)) {}
    [[nodiscard]] Request& request() { return *request_; }

private:
    std::shared_ptr<Request> request_;
};

// A transfer that ended short leaves zeros behind its own end.
void checkBytes(const Request& request, std::string_view data)
{
    const std::string right = bytesAt(request.position, data.size(), request.fileSize);
    const std::size_t same =
        static_cast<std::size_t>(std::mismatch(data.begin(), data.end(), right.begin()).first - data.begin());
    const bool restIsZero = data.find_first_not_of('\0', same) == std::string_view::npos;
    require(same == data.size() || (!request.exact && restIsZero), "a read gets the bytes of its place");
}

void complete(Qz::Ptr<iObject>& context, Qz::Ptr<iMemHolder>& data, RequestStatus status)
{
    Request& request = dynamic_cast<Context&>(*context).request();
    require(++request.calls == 1, "a function is called once");
    require(status == eRequestSuccess || status == eRequestError, "a request succeeds or fails");
    if (status == eRequestError)
        require(!data, "a failure has no data");
    else if (request.isRead) {
        require(data && data->getBuffer() && data->getSize() == request.bytes,
                "a read gets what it asked for");
        checkBytes(request, {reinterpret_cast<const char*>(data->getBuffer()), data->getSize()});
    }
}

// A part of the bytes that all writes share, so that neighbours can be merged.
class Window : public iMemHolder
{
public:
    Window(std::size_t offset, unsigned size) : offset_(offset), size_(size) {}
    unsigned char* getBuffer() const override
    {
        // The interface knows no memory that is only read.
        return reinterpret_cast<unsigned char*>(const_cast<char*>(allBytes().data())) + offset_;
    }
    unsigned getSize() const override { return size_; }
    unsigned getUsed() const override { return size_; }
    void setUsed(unsigned /*bytes*/) override {}

private:
    std::size_t offset_;
    unsigned size_;
};

// What a file that is written holds, by the rules of the write cache.
class WrittenFile
{
public:
    explicit WrittenFile(std::string contents) : contents_(std::move(contents)), position_(contents_.size())
    {}

    [[nodiscard]] bool gathers(unsigned bytes) const
    {
        return position_ % 512 != 0 || bytes % 512 != 0 || !gathered_.empty();
    }
    [[nodiscard]] bool fits(unsigned bytes) const { return bytes <= cacheBytes - gathered_.size(); }
    void direct(std::string_view data)
    {
        put(position_, data);
        position_ += data.size();
        cacheStart_ = position_;
    }
    void gather(std::string_view data)
    {
        gathered_ += data;
        const std::size_t whole = gathered_.size() - gathered_.size() % 512;
        if (gathered_.size() <= gatherLimit || whole == 0)
            return;
        put(position_, std::string_view(gathered_).substr(0, whole));
        position_ += whole;
        gathered_.erase(0, whole);
        cacheStart_ = position_;
    }
    void write(std::string_view data)
    {
        if (!gathered_.empty())
            position_ = flush();
        put(position_, data);
        position_ += data.size();
    }
    void seek(std::uint64_t position)
    {
        if (!gathered_.empty())
            flush();
        position_ = position;
    }
    void close()
    {
        const std::string again = gathered_;
        if (again.empty())
            return;
        const std::uint64_t behind = flush();
        put(behind, again);
    }
    [[nodiscard]] const std::string& contents() const { return contents_; }

private:
    // Where the gathered bytes end.
    std::uint64_t flush()
    {
        put(cacheStart_, gathered_);
        const std::uint64_t end = cacheStart_ + gathered_.size();
        gathered_.clear();
        return end;
    }
    void put(std::uint64_t position, std::string_view data)
    {
        if (!data.empty() && contents_.size() < position + data.size())
            contents_.resize(position + data.size());
        contents_.replace(position, data.size(), data);
    }

    std::string contents_;
    std::string gathered_;
    std::uint64_t position_;
    std::uint64_t cacheStart_ = 512;
};

// False when there is nothing left to start or to end. A start without memory is tried 40 times, and one that
// fails holds up those behind it for a pass.
bool startAndEndSome(FakeOS& os)
{
    for (unsigned idle = 0; idle < 45; ++idle) {
        const unsigned before = os.transfers().accepted();
        FsysTestAccess::readPass();
        FsysTestAccess::writePass();
        if (os.transfers().completeAll() != 0 || os.transfers().accepted() != before)
            return true;
    }
    return false;
}

class Run
{
public:
    Run(FakeOS& os, const std::uint8_t* data, std::size_t size) : os_(os), input_(data, size)
    {
        require(FsysInitialize() == 1, "the engine starts");
        FsysSetWriteSpeedWarning(false);
        FsysSetImmediateRequestHandling(input_.ConsumeBool());
        fails_ = input_.ConsumeBool();
        fileSize_ = input_.ConsumeIntegralInRange<unsigned>(0, 70000);
        fileSize_ += fileSize_ == MaterialLink::linkFileSize;  // this is about media
        const unsigned coalesce = input_.PickValueInArray({0U, 512U, 65536U, 0xFFFFFFFFU});
        os_.files().addFile(L"/m/r", bytesAt(0, fileSize_, fileSize_));
        const std::string before = allBytes().substr(7, input_.PickValueInArray({0U, 100U, 1024U, 3000U}));
        os_.files().addFile(L"/m/w", before);
        require(FsysOpen(&reader_, L"/m/r", coalesce, fsysOpenRead, nullptr) == 1,
                "a file opens for reading");
        require(FsysOpen(&writer_, L"/m/w", coalesce, fsysOpenWrite, nullptr) == 1,
                "a file opens for writing");
        model_ = std::make_unique<WrittenFile>(before);
    }

    void play()
    {
        for (unsigned steps = 0; steps < 200 && input_.remaining_bytes() != 0; ++steps)
            step();
        os_.faults().clear();
        settle();
        for (const auto& request : requests_)
            require(request->calls == (request->expected ? 1U : 0U) || isNothing(*request),
                    "every function that is due was called");
        require(FsysClose(reader_, nullptr) == 1 && FsysClose(writer_, nullptr) == 1, "files close");
        if (!fails_) {
            model_->close();
            require(os_.files().contents(L"/m/w") == model_->contents(), "a file holds what was written");
            require(outstanding() == outstandingBefore_, "nothing is outstanding");
        }
        require(os_.live().files == 0, "nothing stays open");
        // A thread of a port lets go of a transfer's context after it has told of its end.
        for (unsigned looks = 0; os_.live().contexts != 0 && looks < 1000000; ++looks)
            std::this_thread::yield();
        require(os_.live().contexts == 0, "no transfer stays");
    }

private:
    void step()
    {
        switch (input_.ConsumeIntegralInRange(0, 13)) {
        case 0:
        case 1:
        case 2:
            return read(near(), input_.ConsumeIntegralInRange(0U, 20000U));
        case 3:
            return read(input_.ConsumeIntegral<std::uint64_t>(), input_.ConsumeIntegralInRange(1U, 5000U));
        case 4:
            return readSynchronously();
        case 5:
            return write(input_.ConsumeIntegralInRange(1U, 40U) * 512);
        case 6:
            return write(input_.ConsumeIntegralInRange(1U, blockMax));
        case 7:
            return writeSynchronously();
        case 8:
            return seek();
        case 9:
            FsysTestAccess::readPass();
            return;
        case 10:
            FsysTestAccess::writePass();
            return;
        case 11:
        case 12:
            return endTransfer();
        default:
            return planFault();
        }
    }

    // Bytes of writes that failed stay counted, also those of inputs before this one.
    static unsigned outstanding()
    {
        unsigned bytes = 0;
        FsysGetWriteBytesOutstanding(&bytes);
        return bytes;
    }

    // A read of nothing ends with others that it was merged with, and never by itself.
    static bool isNothing(const Request& request) { return request.isRead && request.bytes == 0; }

    std::uint64_t near() { return input_.ConsumeIntegralInRange<std::uint64_t>(0, fileSize_ + 2000U); }

    std::shared_ptr<Request> make(bool isRead, std::uint64_t position, unsigned bytes)
    {
        auto request = std::make_shared<Request>();
        *request = {position, bytes, isRead, fileSize_, !fails_, false, 0};
        requests_.push_back(request);
        return request;
    }

    void read(std::uint64_t position, unsigned bytes)
    {
        const auto request = make(true, position, bytes);
        Qz::Ptr<iObject> context(new Context(request));
        const unsigned result =
            reader_->DirectRead(static_cast<long>(position), bytes, input_.ConsumeBool(), &complete, context);
        request->expected = result == 1;
        require(result == 1 || request->calls == 0, "what is refused is not reported");
    }

    void readSynchronously()
    {
        const std::uint64_t position = near();
        std::string buffer(input_.ConsumeIntegralInRange(1U, 5000U), '?');
        reader_->Seek(static_cast<long>(position), eSeekAbsolute);
        if (reader_->Read(buffer.data(), static_cast<unsigned>(buffer.size())) != 1)
            return require(fails_ || position >= fileSize_, "a read fails behind the end only");
        const std::string right = bytesAt(position, buffer.size(), fileSize_);
        const std::size_t got =
            std::min<std::uint64_t>(buffer.size(), fileSize_ - std::min<std::uint64_t>(position, fileSize_));
        require(buffer.compare(0, got, right, 0, got) == 0, "a synchronous read gets the bytes of its place");
    }

    // The next bytes, so that one write's data adjoins the last one's.
    Qz::Ptr<iMemHolder> nextData(unsigned bytes)
    {
        if (used_ + bytes > allBytes().size())
            used_ = 0;
        used_ += bytes;
        return Qz::Ptr<iMemHolder>(new Window(used_ - bytes, bytes));
    }

    void write(unsigned bytes)
    {
        const auto request = make(false, 0, bytes);
        Qz::Ptr<iObject> context(new Context(request));
        Qz::Ptr<iMemHolder> data = nextData(bytes);
        const std::string copy(reinterpret_cast<const char*>(data->getBuffer()), bytes);
        const bool gathers = model_->gathers(bytes);
        const bool fits = !gathers || model_->fits(bytes);
        const unsigned result =
            writer_->DirectWrite(data, input_.ConsumeBool(), &complete, context, input_.ConsumeBool());
        request->expected = result == 1;
        require(result == 1 || request->calls == 0, "what is refused is not reported");
        if (fails_)
            return;
        require(fits || result == 0, "what does not fit is refused");
        if (result == 1)
            gathers ? model_->gather(copy) : model_->direct(copy);
        else
            require(!fits || !gathers, "the cache takes what fits");
    }

    void writeSynchronously()
    {
        const std::string data =
            allBytes().substr(requests_.size(), input_.ConsumeIntegralInRange(1U, 5000U));
        settle();  // what is under way goes first, as in the model
        const unsigned result = writer_->Write(data.data(), static_cast<unsigned>(data.size()));
        require(fails_ || result == 1, "a synchronous write succeeds");
        model_->write(data);
    }

    void seek()
    {
        const std::uint64_t position = input_.ConsumeIntegralInRange(0U, 300000U);
        settle();
        writer_->Seek(static_cast<long>(position), eSeekAbsolute);
        model_->seek(position);
    }

    void endTransfer()
    {
        const std::size_t held = os_.transfers().heldCount();
        if (held == 0)
            return;
        const std::size_t which = input_.ConsumeIntegralInRange<std::size_t>(0, held - 1);
        const unsigned how = fails_ ? input_.ConsumeIntegralInRange(0U, 3U) : 0;
        if (how == 1)
            os_.transfers().failAt(which, errorFromErrno(EIO));
        else if (how == 2)
            os_.transfers().completeShort(which, input_.ConsumeIntegralInRange<std::size_t>(0, 70000));
        else
            os_.transfers().completeAt(which);
    }

    void planFault()
    {
        using fake::Op;
        const Op op = input_.PickValueInArray({Op::read, Op::write, Op::asyncRead, Op::asyncWrite,
                                               Op::completion, Op::allocatePages, Op::getInfo, Op::flush});
        const unsigned times = input_.ConsumeIntegralInRange(1U, 45U);
        if (fails_)
            os_.faults().failNext(op, errorFromErrno(EIO), times);
    }

    void settle()
    {
        while (startAndEndSome(os_)) {
        }
    }

    FakeOS& os_;
    FuzzedDataProvider input_;
    const unsigned outstandingBefore_ = outstanding();
    bool fails_ = false;
    unsigned fileSize_ = 0;
    FsysFile* reader_ = nullptr;
    FsysFile* writer_ = nullptr;
    std::unique_ptr<WrittenFile> model_;
    std::vector<std::shared_ptr<Request>> requests_;
    std::size_t used_ = 0;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static FakeOS os;
    static const ScopedOS installed(os);
    static const NoLog silence;
    static const bool ready = [] {
        os.files().addDrive(L"/m/");
        os.clock().setIdleHandler([] { return startAndEndSome(os); });
        return true;
    }();
    (void)ready;
    Run(os, data, size).play();
    os.clock().clearRecords();
    os.log().clear();
    return 0;
}
