#include <gtest/gtest.h>

#include "fsys/MediaFileInfo.h"

#include "FileSpy.h"

namespace {

constexpr unsigned noHeight = 0xFFFFFFFFu;

unsigned height(const wchar_t* name) { return MediaFileInfo::getProxyHeight(name); }
unsigned channels(const wchar_t* name) { return MediaFileInfo::getProxyAudioChannels(name); }
bool isProxy(const wchar_t* name) { return MediaFileInfo::isProxy(name); }

}  // namespace

TEST(ProxyNames, AreBuiltFromStemChannelsHeightAndExtension)
{
    EXPECT_EQ(MediaFileInfo::makeProxyName(L"Material/0A1B2C3D.mov", L"mov", 480, 2),
              L"Material/0A1B2C3D.A2.proxy.480.mov");
    EXPECT_EQ(MediaFileInfo::makeProxyName(L"Sound/abc.wav", L"wav", 0, 8), L"Sound/abc.A8.proxy.0.wav");
    EXPECT_EQ(MediaFileInfo::makeProxyName(L"/m/a.b.mov", L"mxf", 4294967295u, 255),
              L"/m/a.b.A255.proxy.4294967295.mxf");
}

TEST(ProxyNames, AreAppendedToANameWithoutExtension)
{
    EXPECT_EQ(MediaFileInfo::makeProxyName(L"clip", L"avi", 270, 0), L"clip.A0.proxy.270.avi");
    EXPECT_EQ(MediaFileInfo::makeProxyName(L"d.x/clip", L"avi", 270, 0), L"d.x/clip.A0.proxy.270.avi");
}

TEST(ProxyNames, TakeTheExtensionAsItIsPassed)
{
    EXPECT_EQ(MediaFileInfo::makeProxyName(L"clip", L".avi", 1, 1), L"clip.A1.proxy.1..avi");
    EXPECT_EQ(MediaFileInfo::makeProxyName(L"clip", L"", 1, 1), L"clip.A1.proxy.1.");
}

TEST(ProxyNames, AreReadBackAsTheyWereBuilt)
{
    const auto name = MediaFileInfo::makeProxyName(L"Material/0A1B.mov", L"mov", 540, 16);
    EXPECT_EQ(MediaFileInfo::getProxyHeight(name), 540u);
    EXPECT_EQ(MediaFileInfo::getProxyAudioChannels(name), 16u);
    EXPECT_TRUE(MediaFileInfo::isProxy(name));
}

TEST(ProxyNames, CarryHeightAndChannels)
{
    EXPECT_EQ(height(L"Material/0A1B2C3D.A2.proxy.480.mov"), 480u);
    EXPECT_EQ(channels(L"Material/0A1B2C3D.A2.proxy.480.mov"), 2u);
    EXPECT_EQ(height(L"Material/0A1B2C3D.mov"), noHeight);
    EXPECT_EQ(channels(L"abc.mov"), 0u);
}

TEST(ProxyNames, NeedNoAudioTag)
{
    EXPECT_EQ(height(L"x.proxy.480"), 480u);
    EXPECT_EQ(channels(L"x.proxy.480"), 0u);
    EXPECT_TRUE(isProxy(L"x.proxy.480"));
}

TEST(ProxyNames, WithoutANumberCarryNoHeight)
{
    EXPECT_EQ(height(L"x.proxy.abc"), noHeight);
    EXPECT_EQ(height(L"x.proxy."), noHeight);
    EXPECT_EQ(height(L"x.proxy"), noHeight);
    EXPECT_EQ(height(L"x.proxy480"), noHeight);
    EXPECT_EQ(height(L"x.proxy.+"), noHeight);
    EXPECT_EQ(height(L"x.proxy.-x"), noHeight);
    EXPECT_EQ(height(L"x.proxy.+-5"), noHeight);
    EXPECT_FALSE(isProxy(L"x.proxy.abc"));
}

TEST(ProxyNames, NeedNoDotBeforeTheProxyTag)
{
    EXPECT_EQ(height(L"proxy.480"), 480u);
    EXPECT_EQ(height(L"myproxy.270.mov"), 270u);
}

TEST(ProxyNames, HaveNoValueWhenEmpty)
{
    EXPECT_EQ(height(L""), noHeight);
    EXPECT_EQ(channels(L""), 0u);
    EXPECT_FALSE(isProxy(L""));
    EXPECT_FALSE(MediaFileInfo::isProxy({}));
}

TEST(ProxyNames, AreCaseSensitive)
{
    EXPECT_EQ(height(L"x.Proxy.480"), noHeight);
    EXPECT_EQ(height(L"x.PROXY.480"), noHeight);
    EXPECT_EQ(channels(L"x.a2"), 0u);
    EXPECT_FALSE(isProxy(L"/m/Proxy/proxy-1.mov"));
}

TEST(ProxyNames, AreReadAtTheFirstTagOnly)
{
    EXPECT_EQ(height(L"d/proxy/x.proxy.480"), noHeight);
    EXPECT_EQ(height(L"/media/proxy/proxy-0A1B.A2.proxy.480.mov"), noHeight);
    EXPECT_EQ(height(L"proxy.1/x.proxy.480"), 1u);
    EXPECT_EQ(channels(L"x.Archive/a.A2.proxy.1"), 0u);
    EXPECT_EQ(channels(L"x.A3/a.A2.proxy.1"), 3u);
}

TEST(ProxyNames, TakeNumbersAsAScanOfDecimalsDoes)
{
    EXPECT_EQ(height(L"proxy. \t\n\v\f\r480x"), 480u);
    EXPECT_EQ(height(L"proxy.+480"), 480u);
    EXPECT_EQ(height(L"proxy.00480.mov"), 480u);
    EXPECT_EQ(height(L"proxy.0x10"), 0u);
    EXPECT_EQ(height(L"proxy.1.5"), 1u);
    EXPECT_EQ(height(L"proxy. "), noHeight);
    EXPECT_EQ(height(L"proxy .480"), noHeight);
    EXPECT_EQ(channels(L"x.A 2.mov"), 2u);
    EXPECT_EQ(channels(L"x.A+2"), 2u);
}

TEST(ProxyNames, TakeNegativeNumbersAsTheirTwosComplement)
{
    EXPECT_EQ(height(L"proxy.-2.x"), 0xFFFFFFFEu);
    EXPECT_EQ(channels(L"x.A-1"), 0xFFFFFFFFu);
}

TEST(ProxyNames, CannotCarryTheHeightThatStandsForNone)
{
    EXPECT_EQ(height(L"x.proxy.-1.x"), noHeight);
    EXPECT_FALSE(isProxy(L"x.proxy.-1.x"));
    EXPECT_FALSE(isProxy(L"x.proxy.4294967295.x"));
}

TEST(ProxyNames, TakeLargeNumbersModulo32Bits)
{
    EXPECT_EQ(channels(L"x.A4000000000"), 4000000000u);
    EXPECT_EQ(height(L"proxy.4294967776"), 480u);
    EXPECT_EQ(height(L"proxy.99999999999999999999"), 1661992959u);
    EXPECT_EQ(height(L"proxy.-4294967297"), noHeight);
}

TEST(ProxyNames, AreAlsoThoseOfFilesInAFolderOfProxies)
{
    EXPECT_TRUE(isProxy(L"/media/proxy/proxy-1.mov"));
    EXPECT_TRUE(isProxy(L"Material/proxy/proxy-1.mov"));
    EXPECT_EQ(height(L"/media/proxy/proxy-1.mov"), noHeight);
    EXPECT_FALSE(isProxy(L"/media/proxy/other-1.mov"));
    EXPECT_FALSE(isProxy(L"proxy/proxy-1.mov"));
    EXPECT_FALSE(isProxy(L"/media/proxy-1.mov"));
}

TEST(ProxyNames, InAFolderOfProxiesCountOnlyForPathsWithDirectories)
{
    FileSpy spy;
    spy.pathsHaveDirectories = true;
    EXPECT_TRUE(isProxy(L"/media/proxy/proxy-1.mov"));
    spy.pathsHaveDirectories = false;
    EXPECT_FALSE(isProxy(L"/media/proxy/proxy-1.mov"));
    EXPECT_TRUE(isProxy(L"x.proxy.480")) << "a height is enough";
}

TEST(ProxyNames, AreToldWithoutLookingAtTheDisk)
{
    const FileSpy spy;
    for (int i = 0; i < 100; ++i)
        EXPECT_FALSE(
            MediaFileInfo::isProxy(L"/Material/" + LightweightString<wchar_t>(std::to_wstring(i)) + L".mov"));
    EXPECT_EQ(spy.diskAccesses, 0);
}
