#include "Reader.h"

#include "Buffers.h"
#include "Clips.h"
#include "Gil.h"
#include "Qz/Utf8.h"
#include "Raised.h"
#include "Texts.h"

#include <algorithm>
#include <optional>
#include <utility>

namespace py = pybind11;

namespace {

// Whom to tell of an asynchronous read, and where its bytes go. It may end on any thread.
class Caller
{
public:
    explicit Caller(const py::function& callback) : callback_(callback.inc_ref().ptr()) {}
    Caller(const py::function& callback, const py::object& into) : Caller(callback)
    {
        into_.emplace(into, Buffer::For::writing);
    }
    ~Caller()
    {
        into_.reset();
        if (const gil::Inside inside; inside)
            py::handle(callback_).dec_ref();
    }
    Caller(const Caller&) = delete;
    Caller& operator=(const Caller&) = delete;

    [[nodiscard]] std::size_t room() const { return into_->bytes().size(); }

    void hear(const MediaReadResult& result)
    {
        const std::span<const std::byte> bytes = result.data.bytes();
        if (into_)
            std::copy(bytes.begin(), bytes.end(), into_->bytes().begin());
        const gil::Inside inside;
        if (!inside)
            return;
        into_.reset();  // whoever hears of it may resize the buffer
        try {
            call(result);
        } catch (py::error_already_set& raised) {
            raised.discard_as_unraisable("a callback of fsys.Reader");
        }
    }

private:
    void call(const MediaReadResult& result) const
    {
        const py::handle callback(callback_);
        // The end of the file is an answer and no error: a file's read() has no bytes there.
        if (result.error && result.error.code != MediaErrorCode::beyondEnd)
            callback(py::none(), 0, Raised(result.error).object());
        else
            callback(Data{result.data}, result.data.size(), py::none());
    }

    PyObject* const callback_;
    std::optional<Buffer> into_;
};

MediaReader::Callback tell(const std::shared_ptr<Caller>& caller)
{
    return [caller](const MediaReadResult& result) { caller->hear(result); };
}

}  // namespace

Reader::Reader(Shared open)
    : open_(std::move(open)), path_(open_->reader.path()), target_(open_->reader.target())
{}

std::unique_ptr<Reader> Reader::ofFile(const py::str& path)
{
    const LightweightString<wchar_t> file = texts::toWide(path);
    return gil::without([&] {
        auto open = std::make_shared<Open>(file);
        if (!open->reader.isOpen())
            throw Raised(open->reader.openError());
        return std::unique_ptr<Reader>(new Reader(std::move(open)));
    });
}

std::unique_ptr<Reader> Reader::ofClip(const py::str& cookie, const py::str& level, unsigned height)
{
    const Cookie clip = clips::cookieOf(cookie);
    const DecodeFormat format = clips::formatOf(level, height);
    return gil::without([&] {
        const clips::Found found = clips::find(clip, format);
        if (found.known && !found.online)
            throw Raised(MediaError{MediaErrorCode::offline, 0,
                                    toUTF8(clip.asWString()).str() + ": its media cannot be reached"});
        // By the clip where that opens the right file: it knows links that point at links.
        auto open =
            found.insteadOf ? std::make_shared<Open>(found.path) : std::make_shared<Open>(clip, format);
        if (!open->reader.isOpen())
            throw Raised(open->reader.openError());
        return std::unique_ptr<Reader>(new Reader(std::move(open)));
    });
}

Reader::~Reader() { close(); }

py::str Reader::path() const { return texts::toPython(path_); }
py::str Reader::target() const { return texts::toPython(target_); }

bool Reader::isOpen() const
{
    const std::lock_guard hold(guard_);
    return open_ != nullptr;
}

Reader::Shared Reader::open() const
{
    engine::refuseAfterFork();
    const std::lock_guard hold(guard_);
    if (!open_)
        throw Raised(MediaError{MediaErrorCode::notOpen, 0, "the reader is closed"});
    return open_;
}

std::uint64_t Reader::size() const
{
    return gil::without([&] { return open()->reader.size(); });
}

std::size_t Reader::readInto(std::uint64_t offset, const py::object& into)
{
    const Buffer buffer(into, Buffer::For::writing);
    return gil::without([&] {
        MediaError error;
        const std::size_t got = open()->reader.read(offset, buffer.bytes(), &error);
        if (error && error.code != MediaErrorCode::beyondEnd)
            throw Raised(error);
        return got;
    });
}

std::uint64_t Reader::readAsync(std::uint64_t offset, std::uint64_t bytes, const py::function& callback)
{
    auto caller = std::make_shared<Caller>(callback);
    return gil::without([&] {
        const Shared reader = open();
        return reader->reader.readAsync(offset, bytes, tell(std::exchange(caller, nullptr)));
    });
}

std::uint64_t Reader::readIntoAsync(std::uint64_t offset, const py::object& into,
                                    const py::function& callback)
{
    auto caller = std::make_shared<Caller>(callback, into);
    return gil::without([&] {
        const Shared reader = open();
        const std::size_t room = caller->room();
        return reader->reader.readAsync(offset, room, tell(std::exchange(caller, nullptr)));
    });
}

bool Reader::cancel(std::uint64_t ticket)
{
    return gil::without([&] { return open()->reader.cancel(ticket); });
}

void Reader::setReadAhead(std::uint64_t bytes)
{
    gil::without([&] { open()->reader.setReadAhead(bytes); });
}

void Reader::setStallLimit(unsigned limitMs)
{
    gil::without([&] { open()->reader.setStallLimit(limitMs); });
}

py::dict Reader::counters() const
{
    const MediaReader::Counters now = gil::without([&] { return open()->reader.counters(); });
    py::dict counters;
    counters["requests"] = now.requests;
    counters["bytes"] = now.bytes;
    counters["cache_answers"] = now.cacheAnswers;
    counters["waits"] = now.waits;
    counters["worst_wait_ms"] = now.worstWaitMs;
    return counters;
}

void Reader::close()
{
    // The threads that the end of a reader waits for are not in a child that was forked off.
    if (engine::isLost()) {
        static_cast<void>(new Shared(std::move(open_)));
        return;
    }
    gil::without([&] {
        Shared last;
        {
            const std::lock_guard hold(guard_);
            last.swap(open_);
        }
        // Its end waits for callbacks, which want the interpreter, and may ask for the guard.
        last.reset();
    });
}
