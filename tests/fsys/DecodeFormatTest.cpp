#include "fsys/DecodeFormat.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace {

using Qz::Image::Format;
using Data = Qz::Image::Core::Data;

constexpr auto wrongLevel = static_cast<eProxyLevel>(3);

std::string assertionAtLine(int line)
{
    return "assertion failed proxyLevel_ == eAuto || proxyLevel_ == eHighRes || proxyLevel_ == eProxy at "
           "ole/fsys/DecodeFormat line " +
           std::to_string(line) + "\n";
}

const Data picture(1920, 1080, Format::V210, 10, 20, true);

void expectDescribes(const Data& data, const Data& wanted)
{
    EXPECT_EQ(data.getWidth(), wanted.getWidth());
    EXPECT_EQ(data.getHeight(), wanted.getHeight());
    EXPECT_EQ(data.getDataFormat(), wanted.getDataFormat());
    EXPECT_EQ(data.getBitsPerComponent(), wanted.getBitsPerComponent());
    EXPECT_EQ(data.getBitsPerPixel(), wanted.getBitsPerPixel());
    EXPECT_EQ(data.getCoreDataSet(), wanted.getCoreDataSet());
}

// What a format for a level alone describes.
const Data anyPicture(0, 0xFFFFFFFFu, static_cast<Format>(0xFFFFFFFFu), 0, 0, true);

// Writes down the order of the setters and keeps half of each height.
class WatchedFormat : public DecodeFormat
{
public:
    std::vector<std::string> calls;

    void setWidth(unsigned width) override
    {
        calls.push_back("width");
        DecodeFormat::setWidth(width);
    }
    void setHeight(unsigned height) override
    {
        calls.push_back("height");
        DecodeFormat::setHeight(height / 2);
    }
    void setDataFormat(Format format) override
    {
        calls.push_back("format");
        DecodeFormat::setDataFormat(format);
    }
    void setBitsPerComponent(unsigned short bits) override
    {
        calls.push_back("component");
        DecodeFormat::setBitsPerComponent(bits);
    }
    void setBitsPerPixel(unsigned short bits) override
    {
        calls.push_back("pixel");
        DecodeFormat::setBitsPerPixel(bits);
    }
    void setCoreDataSet(bool set) override
    {
        calls.push_back("set");
        DecodeFormat::setCoreDataSet(set);
    }
};

// Keeps what a test does to the process's default within that test.
struct RestoredDefault
{
    DecodeFormat saved = DecodeFormat::getDefault();
    ~RestoredDefault() { DecodeFormat::setDefault(saved); }
};

// Answers with other values than its fields hold.
class TallerData : public Data
{
public:
    using Data::Data;
    unsigned getHeight() const override { return Data::getHeight() + 1; }
};

}  // namespace

TEST(DecodeFormat, KnowsItsLevelsByFixedNumbers)
{
    EXPECT_EQ(eAuto, 0u);
    EXPECT_EQ(eHighRes, 1u);
    EXPECT_EQ(eProxy, 2u);
    EXPECT_EQ(eHighRes | eProxy, 3u);
    EXPECT_EQ(sizeof(eProxyLevel), 4u);
}

TEST(DecodeFormat, WantsFullResolutionOfNoPictureByDefault)
{
    const DecodeFormat format;
    EXPECT_EQ(format.getProxyLevel(), 1u);
    expectDescribes(format, Data());
}

TEST(DecodeFormat, MadeFromALevelDescribesEveryPicture)
{
    EXPECT_EQ(DecodeFormat(eProxy).getProxyLevel(), 2u);
    EXPECT_EQ(DecodeFormat(eAuto).getProxyLevel(), 0u);
    expectDescribes(DecodeFormat(eAuto), anyPicture);
}

TEST(DecodeFormat, MadeFromAPictureWantsItsFullResolution)
{
    const DecodeFormat format(picture);
    expectDescribes(format, picture);
    EXPECT_EQ(format.getProxyLevel(), eHighRes);
    EXPECT_EQ(DecodeFormat(Data(0, 480, Format::Unknown, 0, 0, false)).getHeight(), 480u);
}

TEST(DecodeFormat, MadeFromAPictureAsksItsGetters)
{
    EXPECT_EQ(DecodeFormat(TallerData(1, 480, Format::Unknown, 0, 0, false)).getHeight(), 481u);
}

TEST(DecodeFormat, CopiesEverything)
{
    DecodeFormat format(picture);
    format.setProxyLevel(eAuto);
    const DecodeFormat copy = format;
    expectDescribes(copy, picture);
    EXPECT_EQ(copy.getProxyLevel(), eAuto);
}

TEST(DecodeFormat, CopiesStartWithoutReferences)
{
    DecodeFormat format;
    format.addRef();
    const DecodeFormat copy = format;
    EXPECT_EQ(copy.refCount(), 0u);
    EXPECT_FALSE(format.refCount() == 0u);
}

TEST(DecodeFormat, KeepsAWrongLevelAndReportsItAtEachUse)
{
    DecodeFormat format;
    testing::internal::CaptureStdout();
    format.setProxyLevel(wrongLevel);
    const eProxyLevel level = format.getProxyLevel();
    EXPECT_EQ(testing::internal::GetCapturedStdout(), assertionAtLine(82) + assertionAtLine(73));
    EXPECT_EQ(level, 3u);
}

TEST(DecodeFormat, TakesAWrongLevelAtConstructionWithoutAWord)
{
    testing::internal::CaptureStdout();
    const DecodeFormat format(wrongLevel);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
}

TEST(DecodeFormat, IsSilentAboutEveryKnownLevel)
{
    testing::internal::CaptureStdout();
    DecodeFormat format;
    for (const eProxyLevel level : {eAuto, eHighRes, eProxy}) {
        format.setProxyLevel(level);
        EXPECT_EQ(format.getProxyLevel(), level);
        format.setCoreData(picture);
    }
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
}

TEST(DecodeFormat, TakesAPictureAndKeepsItsLevel)
{
    DecodeFormat format(eProxy);
    format.setCoreData(picture);
    expectDescribes(format, picture);
    EXPECT_EQ(format.getProxyLevel(), eProxy);
}

TEST(DecodeFormat, ReportsAWrongLevelAfterTakingAPicture)
{
    DecodeFormat format(wrongLevel);
    testing::internal::CaptureStdout();
    format.setCoreData(picture);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), assertionAtLine(65));
    expectDescribes(format, picture);
}

TEST(DecodeFormat, TakesAPictureThroughTheSettersAndOnceMorePastThem)
{
    WatchedFormat format;
    format.setCoreData(picture);
    EXPECT_EQ(format.calls,
              (std::vector<std::string>{"width", "height", "format", "component", "pixel", "set"}));
    EXPECT_EQ(format.getHeight(), 1080u);  // not the half that the setter kept
}

TEST(DecodeFormatDefault, WantsFullResolutionOfEveryPictureFromLoadOn)
{
    EXPECT_EQ(DecodeFormat::getDefault().getProxyLevel(), eHighRes);
    expectDescribes(DecodeFormat::getDefault(), anyPicture);
}

TEST(DecodeFormatDefault, IsOneObjectThatSetDefaultFills)
{
    const RestoredDefault restored;
    DecodeFormat& before = DecodeFormat::getDefault();
    DecodeFormat wanted(picture);
    wanted.setProxyLevel(eAuto);
    DecodeFormat::setDefault(wanted);
    EXPECT_EQ(&DecodeFormat::getDefault(), &before);
    EXPECT_EQ(before.getProxyLevel(), eAuto);
    expectDescribes(before, picture);
}

TEST(DecodeFormatDefault, TakesALevelAlone)
{
    const RestoredDefault restored;
    DecodeFormat::setDefault(DecodeFormat(eAuto));
    EXPECT_EQ(DecodeFormat::getDefault().getProxyLevel(), 0u);
    expectDescribes(DecodeFormat::getDefault(), anyPicture);
}

TEST(DecodeFormatDefault, TakesAWrongLevelWithoutAWord)
{
    const RestoredDefault restored;
    testing::internal::CaptureStdout();
    DecodeFormat::setDefault(DecodeFormat(wrongLevel));
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
}

TEST(DecodeFormatDefault, CanBeChangedThroughTheReference)
{
    const RestoredDefault restored;
    DecodeFormat::getDefault().setProxyLevel(eProxy);
    EXPECT_EQ(DecodeFormat::getDefault().getProxyLevel(), eProxy);
}
