#include "Qz/AttribValuePair.h"

#include <gtest/gtest.h>

using Qz::AttribValuePair;

TEST(AttribValuePair, NameAndValueAreSplitAtTheSeparator)
{
    const AttribValuePair pair("name=My Drive", '=');
    EXPECT_TRUE(pair.isValid());
    EXPECT_EQ(pair.getName(), "name");
    EXPECT_EQ(pair.getValue(), "My Drive");
}

TEST(AttribValuePair, TheFirstSeparatorSplitsAndLaterOnesBelongToTheValue)
{
    const AttribValuePair pair("name=a=b=", '=');
    EXPECT_EQ(pair.getName(), "name");
    EXPECT_EQ(pair.getValue(), "a=b=");
}

TEST(AttribValuePair, BlanksAreKept)
{
    const AttribValuePair pair(" name = value ", '=');
    EXPECT_EQ(pair.getName(), " name ");
    EXPECT_EQ(pair.getValue(), " value ");
}

TEST(AttribValuePair, AnEmptyValueIsValid)
{
    const AttribValuePair pair("name=", '=');
    EXPECT_TRUE(pair.isValid());
    EXPECT_TRUE(pair.getValue().empty());
}

TEST(AttribValuePair, WithoutASeparatorItIsInvalidAndHoldsNothing)
{
    const AttribValuePair pair("name", '=');
    EXPECT_FALSE(pair.isValid());
    EXPECT_TRUE(pair.getName().isNull());
    EXPECT_TRUE(pair.getValue().isNull());
}

TEST(AttribValuePair, AnEmptyNameIsInvalid)
{
    const AttribValuePair pair("=value", '=');
    EXPECT_FALSE(pair.isValid());
    EXPECT_EQ(pair.getValue(), "value");
    EXPECT_FALSE(AttribValuePair("", "value", '=').isValid());
}

TEST(AttribValuePair, AnEmptyOrNullTextIsInvalid)
{
    EXPECT_FALSE(AttribValuePair("", '=').isValid());
    EXPECT_FALSE(AttribValuePair(LightweightString<char>(), '=').isValid());
}

TEST(AttribValuePair, TheSeparatorIsTheCallersChoice)
{
    const AttribValuePair pair("a=b:c", ':');
    EXPECT_EQ(pair.getName(), "a=b");
    EXPECT_EQ(pair.getValue(), "c");
}

TEST(AttribValuePair, ItsTextReadsBackAsTheSamePair)
{
    const AttribValuePair made("name", "v=1 \xC3\xA9", '=');
    EXPECT_TRUE(made.isValid());
    EXPECT_EQ(made.asString(), "name=v=1 \xC3\xA9");
    const AttribValuePair read(made.asString(), '=');
    EXPECT_EQ(read.getName(), made.getName());
    EXPECT_EQ(read.getValue(), made.getValue());
}
