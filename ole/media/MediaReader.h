#pragma once

#include "Qz/Cookie.h"
#include "Qz/LightweightString.h"
#include "Qz/Ptr.h"
#include "Qz/iMemHolder.h"
#include "fsys/DecodeFormat.h"
#include "media/Export.h"
#include "media/MediaError.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <future>
#include <memory>
#include <span>

// MediaData: bytes that were read. Copies share the memory, which lives as long as one of them does.
class MEDIA_API MediaData
{
public:
    MediaData() = default;
    // A window of memory: size bytes from offset on. REQUIRES: they lie inside it.
    MediaData(const Qz::Ptr<iMemHolder>& memory, std::size_t offset, std::size_t size);

    // The bytes; valid as long as a copy of this lives.
    [[nodiscard]] std::span<const std::byte> bytes() const { return bytes_; }
    // How many they are.
    [[nodiscard]] std::size_t size() const { return bytes_.size(); }
    // True without bytes.
    [[nodiscard]] bool empty() const { return bytes_.empty(); }

private:
    Qz::Ptr<iMemHolder> memory_;
    std::span<const std::byte> bytes_;
};

// What became of an asynchronous read. Data may be shorter than asked for where the file ends inside the
// range; after an error it is empty.
struct MediaReadResult
{
    MediaData data;    // in the order of the file
    MediaError error;  // none after a success
};

// MediaReader: reads one media file, at any place, as fast as the disk allows.
//
//   MediaReader reader(L"/media/Material/V....mov");
//   if (!reader.isOpen())
//       complain(reader.openError().text);
//   std::vector<std::byte> header(64);
//   const std::size_t got = reader.read(0, header);
//   reader.readAsync(1 << 20, 4096, [](MediaReadResult result) { use(result.data.bytes()); });
//
// Links:      a link file is followed as a whole: size and bytes are those of its target.
// Threads:    any, at once. Callbacks run on one thread of the reader, one after another; they may do
//             anything, also read on, wait for other reads' data, throw (the exception is dropped) or
//             destroy the reader. A callback that blocks holds up the callbacks of this reader only.
// Ownership:  data that was handed out outlives the reader. A small part of a large read keeps all of that
//             read's memory.
// Changes:    a file may grow while it is read; an unfinished recording (".partial") ends for a reader where
//             its first gap begins. Bytes that were read once may be answered again from memory while the
//             file only grows; one that is rewritten in place is read anew from the disk as soon as its time
//             of modification tells.
// Order:      callbacks come as reads end, which need not be the order in which they were asked for.
// The end:    the destructor cancels what has not started and waits for the rest, at most as long as
//             FsysClose does; every callback has run when it returns, unless it runs on the thread of the
//             callbacks: then the rest of them follows after it. A read that does not end is reported as
//             given up. The engine must run as long as readers are open.
//             A callback that asks again after every result, "cancelled" included, never lets it end.
// Errors:     reading at or behind the end, a file that shrinks, one that is removed or replaced: each has
//             its own code. None of them closes the reader. A file of several names vanishes with the last.
class MEDIA_API MediaReader
{
public:
    // Takes the result of an asynchronous read; see Threads.
    using Callback = std::function<void(MediaReadResult)>;
    using Ticket = std::uint64_t;  // names an asynchronous read; 0 names none

    // Since the reader was opened.
    struct Counters
    {
        std::uint64_t requests = 0;      // reads that callers asked for
        std::uint64_t bytes = 0;         // that callers were given
        std::uint64_t cacheAnswers = 0;  // reads answered from data that was there already
        std::uint64_t waits = 0;         // reads whose data was not there when asked for
        double worstWaitMs = 0;          // the longest from a request to its data
    };

    // The longest single asynchronous read, in bytes; longer ones are an invalidArgument. Synchronous reads
    // may have any length.
    static constexpr std::uint64_t asyncBytesMax = std::uint64_t{1} << 30;

    // Opens a file by its operating-system path.
    explicit MediaReader(const LightweightString<wchar_t>& path);
    // Opens the file of a clip that suits format (SystemCache::findFileForCookie).
    MediaReader(const Cookie& cookie, const DecodeFormat& format);
    // See The end.
    ~MediaReader();
    MediaReader(const MediaReader&) = delete;
    MediaReader& operator=(const MediaReader&) = delete;

    // False when the file could not be opened; every read then fails with notOpen.
    [[nodiscard]] bool isOpen() const;
    // Why it is not open.
    [[nodiscard]] const MediaError& openError() const;
    // The file that was opened.
    [[nodiscard]] const LightweightString<wchar_t>& path() const;
    // The one whose bytes are read: the target of a link, else the same.
    [[nodiscard]] const LightweightString<wchar_t>& target() const;

    // Bytes of the file now; it may grow while it is read. 0 when the reader is not open or the file cannot
    // be asked.
    [[nodiscard]] std::uint64_t size() const;

    // Reads into.size() bytes at offset and waits for them. The result is the number of bytes read: fewer
    // than asked for where the file ends, or where an error stopped the read, which *error then tells; the
    // rest of into is untouched. A read of no bytes gives 0 and no error.
    std::size_t read(std::uint64_t offset, std::span<std::byte> into, MediaError* error = nullptr);

    // Reads bytes at offset; callback is called once, in every case, never inside this call. A read of no
    // bytes succeeds with no data.
    Ticket readAsync(std::uint64_t offset, std::uint64_t bytes, Callback callback);
    // The same with a future, which is always satisfied.
    [[nodiscard]] std::future<MediaReadResult> readAsync(std::uint64_t offset, std::uint64_t bytes);

    // Cancels an asynchronous read that the engine has not been given yet; its callback then hears
    // "cancelled". False when it has started, has ended or is not known: its callback runs as ever.
    bool cancel(Ticket ticket);
    // Cancels all such reads; how many there were.
    std::size_t cancelAll();

    // For sequential readers: after a read that begins where the one before ended, keeps the next bytes
    // (at least this many) on their way or ready in memory. 0, as at first, reads nothing ahead. What was
    // read ahead and is not wanted any more is dropped. Memory: the window and the largest read, beside the
    // few finished reads that the engine keeps of every open file.
    void setReadAhead(std::uint64_t bytes);

    // A synchronous read fails with givenUp when the disk has brought nothing for so long: 60,000 ms unless
    // set, 0 waits for ever. An asynchronous read ends when the disk answers or the reader goes.
    void setStallLimit(unsigned limitMs);

    // As they are now; from any thread.
    [[nodiscard]] Counters counters() const;

private:
    class MEDIA_LOCAL Session;

    std::shared_ptr<Session> session_;  // never null
    MediaError openError_;
    LightweightString<wchar_t> path_;
    LightweightString<wchar_t> target_;
};
