// A direct read is put into the lists without being made into a request first where that is possible.
// Whatever is asked for, in whatever state the list is, the outcome is that of the plain way: a request that
// is offered to each listed one in turn.

#include "EngineFixture.h"

#include <gmock/gmock.h>

#include <random>
#include <sstream>

using Access = FileRequestTestAccess;

namespace {

// Two files of the same contents. One is read with DirectRead, the other in the plain way.
class ReadMergeTest : public EngineTest
{
protected:
    static constexpr unsigned fileBytes = 64 * 1024;

    struct Side
    {
        FsysFile* file = nullptr;
        Calls calls;
    };
    struct Ask
    {
        long position;
        unsigned bytes;
        bool coalescable;
    };

    ReadMergeTest()
    {
        os.files().addFile(L"/m/Material/direct.mov", pattern(fileBytes));
        os.files().addFile(L"/m/Material/plain.mov", pattern(fileBytes));
    }
    ~ReadMergeTest() override { FsysSetImmediateRequestHandling(true); }

    void begin(unsigned coalesceLength, bool deferred)
    {
        direct.file = open(L"/m/Material/direct.mov", fsysOpenRead, coalesceLength);
        plain.file = open(L"/m/Material/plain.mov", fsysOpenRead, coalesceLength);
        FsysSetImmediateRequestHandling(!deferred);
    }
    void end()
    {
        os.transfers().completeAll();
        for (Side* const side : {&direct, &plain}) {
            side->calls.forget();
            FsysClose(side->file, nullptr);
        }
    }

    unsigned askDirectly(const Ask& ask)
    {
        return direct.file->DirectRead(ask.position, ask.bytes, ask.coalescable, &Calls::record,
                                       direct.calls.context());
    }
    unsigned askPlainly(const Ask& ask)
    {
        FsysFile& file = *plain.file;
        if (const unsigned room = file.CheckRequestListSize(&FsysFileTestAccess::reads(file)); room != 1)
            return room;
        auto* const request =
            new FileRequest(true, ask.bytes, static_cast<unsigned long>(ask.position), ask.coalescable, false,
                            nullptr, &file, &Calls::record, plain.calls.context());
        const bool taken = file.SatisfyFromCache(request) != 0 || offer(request, ask.coalescable);
        EXPECT_TRUE(taken || file.QueueReadRequest(request) == 1);
        FsysFileTestAccess::position(file) += ask.bytes;
        return 1;
    }
    // To every listed request, from the front.
    bool offer(FileRequest* request, bool coalescable)
    {
        for (FileRequest* const listed : FsysFileTestAccess::reads(*plain.file)) {
            if (listed->Coalesce(request) == 0)
                continue;
            FileRequest::destroy(request);
            if (coalescable && DeferRequestStart)
                FsysFileTestAccess::setDeferred(*plain.file, FsysFileTestAccess::deferred(*plain.file) + 1);
            ++merges;
            return true;
        }
        return false;
    }

    // Ends the same transfer of both files.
    void finishOne(std::size_t choice, bool fails)
    {
        for (Side* const side : {&direct, &plain}) {
            std::vector<std::size_t> own;
            const auto held = os.transfers().held();
            for (std::size_t i = 0; i < held.size(); ++i)
                if (static_cast<FileRequest*>(held[i].owner)->file() == side->file)
                    own.push_back(i);
            if (own.empty())
                return;
            if (fails)
                os.transfers().failAt(own[choice % own.size()], 5);
            else
                os.transfers().completeAt(own[choice % own.size()]);
        }
    }

    static std::string stateOf(Side& side)
    {
        std::ostringstream text;
        text << "position " << FsysFileTestAccess::position(*side.file) << " deferred "
             << FsysFileTestAccess::deferred(*side.file) << " outstanding "
             << side.file->readBytesOutstanding() << '\n';
        for (FileRequest* const listed : FsysFileTestAccess::reads(*side.file)) {
            text << listed->status() << ": " << Access::position(*listed) << '+'
                 << Access::byteCount(*listed);
            for (const CompletionInfo& caller : Access::completions(*listed))
                text << ' ' << caller.position << '+' << caller.byteCount << '@' << caller.bufferOffset;
            text << '\n';
        }
        for (const Calls::Call& call : side.calls.all())
            text << call.status << ' ' << call.size << ' ' << std::hash<std::string>()(call.bytes) << '\n';
        side.calls.forget();
        return text.str();
    }

    Side direct;
    Side plain;
    unsigned merges = 0;
};

}  // namespace

TEST_F(ReadMergeTest, ADirectReadEndsUpWhereThePlainWalkPutsIt)
{
    unsigned answered = 0;
    unsigned refused = 0;
    for (unsigned seed = 1; seed <= 60; ++seed) {
        std::mt19937 random(seed);
        const auto below = [&random](unsigned limit) { return static_cast<unsigned>(random() % limit); };
        begin(seed % 4 == 0 ? 512 : 4096U << (seed % 4), seed % 3 != 0);
        long next = 0;
        for (unsigned step = 0; step < 250; ++step) {
            SCOPED_TRACE("seed " + std::to_string(seed) + " step " + std::to_string(step));
            switch (below(16)) {
            case 0:
                readPass();
                break;
            case 1:
            case 2:
                finishOne(below(100), below(20) == 0);
                break;
            default: {
                // Half of them go on where the last one ended, as far as the file reaches.
                const long start = below(2) == 0 && next < long{fileBytes} - 8192
                                       ? next
                                       : static_cast<long>(below(fileBytes / 256 - 32)) * 256;
                const Ask ask{start, 1 + below(below(4) == 0 ? 8192 : 1024), below(4) != 0};
                next = ask.position + ask.bytes;
                const unsigned result = askDirectly(ask);
                ASSERT_EQ(result, askPlainly(ask));
                refused += result != 1 ? 1U : 0U;
                answered += static_cast<unsigned>(plain.calls.count());
            }
            }
            ASSERT_EQ(stateOf(plain), stateOf(direct));
        }
        end();
    }
    // All the ways were taken.
    EXPECT_GT(merges, 1000U);
    EXPECT_GT(answered, 100U);
    EXPECT_GT(refused, 100U);
}

TEST_F(ReadMergeTest, AMergedReadLeavesNothingBehindOfItsOwn)
{
    begin(65536, true);
    for (const long position : {0L, 512L, 1024L})
        EXPECT_EQ(1U, askDirectly({position, 512, true}));
    EXPECT_EQ(3U, direct.calls.references());
    readPass();
    EXPECT_EQ(1U, os.transfers().completeAll());
    EXPECT_EQ(0U, direct.calls.references());
    ASSERT_EQ(3U, direct.calls.count());
    EXPECT_EQ(pattern(fileBytes).substr(1024, 512), direct.calls.last().bytes);
    end();
}

TEST_F(ReadMergeTest, AReadOfAPlaceBeforeTheFirstByteEndsUpWhereThePlainWalkPutsIt)
{
    begin(65536, true);
    for (const Ask& ask : {Ask{-512, 512, true}, Ask{0, 512, true}, Ask{-1024, 512, true},
                           Ask{-768, 2048, true}, Ask{-768, 16, true}, Ask{4000, 64, true}}) {
        ASSERT_EQ(askDirectly(ask), askPlainly(ask));
        ASSERT_EQ(stateOf(plain), stateOf(direct));
    }
    direct.file->ClearMemoryRefs();
    plain.file->ClearMemoryRefs();
    end();
}
