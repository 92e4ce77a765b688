#include "TerminalKeys.h"

#include <gtest/gtest.h>

#include <string>

namespace {

TEST(TerminalKeys, KeysThatArriveTogetherAreTakenOneByOne)
{
    std::string bytes = "\033[B\033OB\033[Ajkq";
    for (const TerminalKey key : {TerminalKey::down, TerminalKey::down, TerminalKey::up, TerminalKey::down,
                                  TerminalKey::up, TerminalKey::quit, TerminalKey::none})
        EXPECT_EQ(takeKey(bytes), key);
    EXPECT_EQ(bytes, "");
}

TEST(TerminalKeys, AKeyThatArrivesInPiecesIsOne)
{
    std::string bytes;
    for (const char byte : {'\033', '['}) {
        bytes += byte;
        EXPECT_EQ(takeKey(bytes), TerminalKey::none);
    }
    bytes += 'B';
    EXPECT_EQ(takeKey(bytes), TerminalKey::down);
}

TEST(TerminalKeys, LettersInsideOtherKeysMeanNothing)
{
    // Page down, F5, a key with Shift, and one that ends in a letter of ours.
    std::string bytes = "\033[6~\033[15~\033[1;2Q\033Oq";
    EXPECT_EQ(takeKey(bytes), TerminalKey::none);
    EXPECT_EQ(bytes, "");
}

TEST(TerminalKeys, AnEscapeBeforeAKeyDoesNotHideIt)
{
    std::string bytes = "\033q";
    EXPECT_EQ(takeKey(bytes), TerminalKey::quit);
}

TEST(TerminalKeys, CtrlCAndCtrlBackslashEnd)
{
    for (std::string bytes : {"\003", "\034"})
        EXPECT_EQ(takeKey(bytes), TerminalKey::quit);
}

TEST(TerminalKeys, ASequenceWithoutEndIsGivenUp)
{
    std::string bytes = "\033[" + std::string(40, '1');
    EXPECT_EQ(takeKey(bytes), TerminalKey::none);
    EXPECT_EQ(bytes, "");
}

}  // namespace
