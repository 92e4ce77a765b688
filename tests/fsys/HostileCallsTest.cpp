// Callers at the ends of what numbers and limits allow, on the real platform.

#include "EngineFixture.h"
#include "common/HeldByProcess.h"
#include "common/TemporaryFolder.h"
#include "os/LastError.h"

#include <gmock/gmock.h>

#include <cerrno>
#include <climits>
#include <condition_variable>

#include <sys/resource.h>

namespace {

// Counts how requests end, and lets a thread wait for them.
class Ends : public iObject
{
public:
    static void function(Qz::Ptr<iObject>& context, Qz::Ptr<iMemHolder>& /*data*/, RequestStatus status)
    {
        auto& self = dynamic_cast<Ends&>(*context);
        const std::lock_guard<std::mutex> hold(self.guard_);
        ++(status == eRequestSuccess ? self.good_ : self.bad_);
        self.changed_.notify_all();
    }
    void await(unsigned count)
    {
        std::unique_lock<std::mutex> hold(guard_);
        changed_.wait(hold, [&] { return good_ + bad_ >= count; });
    }
    [[nodiscard]] unsigned good() const { return good_; }
    [[nodiscard]] unsigned bad() const { return bad_; }

private:
    std::mutex guard_;
    std::condition_variable changed_;
    unsigned good_ = 0;
    unsigned bad_ = 0;
};

// So many descriptors, as long as it lives.
class DescriptorLimit
{
public:
    explicit DescriptorLimit(rlim_t count)
    {
        ::getrlimit(RLIMIT_NOFILE, &before_);
        rlimit few = before_;
        few.rlim_cur = count;
        ::setrlimit(RLIMIT_NOFILE, &few);
    }
    ~DescriptorLimit() { ::setrlimit(RLIMIT_NOFILE, &before_); }
    DescriptorLimit(const DescriptorLimit&) = delete;
    DescriptorLimit& operator=(const DescriptorLimit&) = delete;

private:
    rlimit before_ = {};
};

// A sanitizer takes descriptors of its own to look at memory, and calls an object broken when there are none.
constexpr bool hasSanitizer()
{
#if defined(__has_feature)
    return __has_feature(address_sanitizer);
#else
    return false;
#endif
}

class HostileCalls : public testing::Test
{
protected:
    HostileCalls() { FsysInitialize(); }
    ~HostileCalls() override { FsysUninitialize(Shutdown::eNormalExit); }

    FsysFile* open(const std::string& contents)
    {
        FsysFile* file = nullptr;
        EXPECT_EQ(1U, FsysOpen(&file, wide(folder.file("a.mov", contents)), 65536, fsysOpenRead, nullptr));
        return file;
    }

    TemporaryFolder folder;
    LogCapture logged;
};

}  // namespace

TEST_F(HostileCalls, ReadsAtTheEndsOfTheNumbersFailOnceAndTheFileServesOn)
{
    FsysFile* const file = open(pattern(100000));
    const Qz::Ptr<Ends> ends(new Ends);
    Qz::Ptr<iObject> context = ends;
    unsigned asked = 0;
    for (const long position : {LONG_MAX, LONG_MAX - 1, LONG_MAX - 511, LONG_MAX - 512, LONG_MAX - 1023,
                                LONG_MIN, LONG_MIN + 1, -1L, -2L, -511L, -512L, -513L, 1L << 62, 1L << 40})
        for (const unsigned bytes : {1U, 511U, 512U, 513U, 100000U}) {
            // A place before the first byte may reach into the file, whose beginning is no answer to it.
            ASSERT_EQ(1U, file->DirectRead(position, bytes, asked % 2 == 0, &Ends::function, context))
                << position;
            ends->await(++asked);
            EXPECT_EQ(0U, ends->good()) << position << ' ' << bytes;
        }
    ASSERT_EQ(1U, file->DirectRead(0, 0xFFFFFFFF, false, &Ends::function, context));
    ends->await(++asked);
    EXPECT_EQ(asked, ends->bad());
    ASSERT_EQ(1U, file->DirectRead(1000, 5000, false, &Ends::function, context));
    ends->await(++asked);
    EXPECT_EQ(1U, ends->good());
    EXPECT_EQ(1U, FsysClose(file, nullptr));
}

TEST_F(HostileCalls, SynchronousCallsAtTheEndsOfTheNumbersFailAndTheFileServesOn)
{
    FsysFile* file = nullptr;
    ASSERT_EQ(1U, FsysOpen(&file, wide(folder / "a.mov"), 65536, fsysOpenWrite, nullptr));
    char byte = 'x';
    for (const long position : {LONG_MAX, LONG_MIN, -1L}) {
        file->Seek(position, eSeekAbsolute);
        EXPECT_EQ(0U, file->Read(&byte, 1)) << position;
        EXPECT_NE(1U, file->Write(&byte, 1)) << position;
    }
    file->Seek(0, eSeekAbsolute);
    EXPECT_EQ(1U, file->Write("abc", 3));
    EXPECT_EQ(1U, FsysClose(file, nullptr));
    EXPECT_EQ("abc", contentsOf(folder / "a.mov"));
}

TEST_F(HostileCalls, TwentyThousandOpensWithFewDescriptorsFailCleanlyBeyondTheLimit)
{
    if (hasSanitizer())
        GTEST_SKIP() << "the sanitizer needs descriptors";
    const LightweightString<wchar_t> path = wide(folder.file("a.mov", pattern(1000)));
    FsysFile* first = nullptr;  // makes the ports, which take descriptors of their own
    ASSERT_EQ(1U, FsysOpen(&first, path, 65536, fsysOpenRead, nullptr));
    const long before = descriptorsHeld();
    std::vector<FsysFile*> files;
    {
        const DescriptorLimit limit(static_cast<rlim_t>(before) + 40);
        for (int i = 0; i < 20000; ++i) {
            FsysFile* file = nullptr;
            if (FsysOpen(&file, path, 65536, fsysOpenRead, nullptr) == 1) {
                files.push_back(file);
            } else {
                ASSERT_EQ(nullptr, file);
                ASSERT_EQ(errorFromErrno(EMFILE), FsysGetLastError());
            }
        }
        EXPECT_GE(files.size(), 10U);
        EXPECT_LE(files.size(), 20U);
        // Those that are open go on.
        const Qz::Ptr<Ends> ends(new Ends);
        Qz::Ptr<iObject> context = ends;
        for (FsysFile* file : files)
            ASSERT_EQ(1U, file->DirectRead(0, 1000, false, &Ends::function, context));
        ends->await(static_cast<unsigned>(files.size()));
        EXPECT_EQ(files.size(), ends->good());
        for (FsysFile* file : files)
            EXPECT_EQ(1U, FsysClose(file, nullptr));
        EXPECT_EQ(before, descriptorsHeld());
        FsysFile* again = nullptr;
        EXPECT_EQ(1U, FsysOpen(&again, path, 65536, fsysOpenRead, nullptr));
        EXPECT_EQ(1U, FsysClose(again, nullptr));
    }
    EXPECT_EQ(1U, FsysClose(first, nullptr));
}
