#include "Qz/ImageCore.h"

#include <cstddef>
#include <cstring>
#include <type_traits>

#include <gtest/gtest.h>

using Qz::Image::Format;
using Qz::Image::Core::Data;
using Qz::Image::Core::Interface;

static_assert(std::is_same_v<std::underlying_type_t<Format>, std::uint32_t>);

namespace {

void expectValues(const Interface& data, unsigned width, unsigned height, Format format, unsigned component,
                  unsigned pixel, bool set)
{
    EXPECT_EQ(data.getWidth(), width);
    EXPECT_EQ(data.getHeight(), height);
    EXPECT_EQ(data.getDataFormat(), format);
    EXPECT_EQ(data.getBitsPerComponent(), component);
    EXPECT_EQ(data.getBitsPerPixel(), pixel);
    EXPECT_EQ(data.getCoreDataSet(), set);
}

}  // namespace

TEST(ImageCoreData, ADefaultOneDescribesNothing) { expectValues(Data(), 0, 0, Format::Unknown, 0, 0, false); }

TEST(ImageCoreData, TheConstructorKeepsAllSixValues)
{
    expectValues(Data(1920, 1080, Format::V210, 10, 20, true), 1920, 1080, Format::V210, 10, 20, true);
}

TEST(ImageCoreData, EachSetterChangesItsOwnValueOnly)
{
    Data data;
    Interface& described = data;
    described.setWidth(1);
    expectValues(data, 1, 0, Format::Unknown, 0, 0, false);
    described.setHeight(2);
    expectValues(data, 1, 2, Format::Unknown, 0, 0, false);
    described.setDataFormat(Format::RGB24);
    expectValues(data, 1, 2, Format::RGB24, 0, 0, false);
    described.setBitsPerComponent(3);
    expectValues(data, 1, 2, Format::RGB24, 3, 0, false);
    described.setBitsPerPixel(4);
    expectValues(data, 1, 2, Format::RGB24, 3, 4, false);
    described.setCoreDataSet(true);
    expectValues(data, 1, 2, Format::RGB24, 3, 4, true);
}

TEST(ImageCoreData, TheHighestHeightAndAnyFormatNumberAreKept)
{
    Data data;
    data.setHeight(0xFFFFFFFFu);
    data.setDataFormat(static_cast<Format>(0xFFFFFFFEu));
    EXPECT_EQ(data.getHeight(), 0xFFFFFFFFu);
    EXPECT_EQ(static_cast<std::uint32_t>(data.getDataFormat()), 0xFFFFFFFEu);
    EXPECT_EQ(static_cast<std::uint32_t>(Format::Any), 0xFFFFFFFFu);
}

TEST(ImageCoreData, ACopyHasTheValuesButNoReferences)
{
    Data data(1, 2, Format::RGBA32, 8, 32, true);
    data.addRef();
    const Data copy(data);
    expectValues(copy, 1, 2, Format::RGBA32, 8, 32, true);
    EXPECT_EQ(copy.refCount(), 0u);
    EXPECT_EQ(data.refCount(), 1u);
}

#if defined(__x86_64__)
namespace {

// The place of a virtual operation in its class's table, counted from the first function; as pointers to
// members tell it on this machine.
template <class Member>
std::size_t slotOf(Member member)
{
    struct
    {
        std::size_t offset;
        std::ptrdiff_t adjustment;
    } parts{};
    static_assert(sizeof parts == sizeof member);
    std::memcpy(&parts, &member, sizeof parts);
    return (parts.offset - 1) / sizeof(void*);
}

template <class Described>
void expectSlotsFrom2To13()
{
    EXPECT_EQ(slotOf(&Described::getWidth), 2u);
    EXPECT_EQ(slotOf(&Described::getHeight), 3u);
    EXPECT_EQ(slotOf(&Described::setWidth), 4u);
    EXPECT_EQ(slotOf(&Described::setHeight), 5u);
    EXPECT_EQ(slotOf(&Described::getDataFormat), 6u);
    EXPECT_EQ(slotOf(&Described::setDataFormat), 7u);
    EXPECT_EQ(slotOf(&Described::getBitsPerComponent), 8u);
    EXPECT_EQ(slotOf(&Described::setBitsPerComponent), 9u);
    EXPECT_EQ(slotOf(&Described::getBitsPerPixel), 10u);
    EXPECT_EQ(slotOf(&Described::setBitsPerPixel), 11u);
    EXPECT_EQ(slotOf(&Described::getCoreDataSet), 12u);
    EXPECT_EQ(slotOf(&Described::setCoreDataSet), 13u);
}

}  // namespace

TEST(ImageCoreData, ItsOperationsFollowTheTwoDestructorsInAFixedOrder)
{
    expectSlotsFrom2To13<Interface>();
    expectSlotsFrom2To13<Data>();
}
#endif
