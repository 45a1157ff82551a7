#include <gtest/gtest.h>

#include <cstring>

#include "VelmoraVersion.h"

TEST(Version, NumbersAndTextsOfThisBuild)
{
    using Velmora::Version;
    EXPECT_EQ(Version::GetMajor(), 1u);
    EXPECT_EQ(Version::GetMinor(), 0u);
    EXPECT_EQ(Version::GetRelease(), 0u);
    EXPECT_EQ(Version::GetRevision(), 17u);
    EXPECT_EQ(Version::GetYear(), 2022);
    EXPECT_EQ(Version::GetMonth(), 7);
    for (bool alternate : {false, true}) {
        EXPECT_STREQ(Version::GetDescStringMajorMinor(alternate), "1.0");
        EXPECT_STREQ(Version::GetDescStringMajorMinorRelease(alternate), "1.0.0");
        EXPECT_STREQ(Version::GetDescStringMajorMinorReleaseRevision(alternate), "1.0.0.17");
    }
    EXPECT_STREQ(Version::GetDescStringMajorMinorReleaseRevisionDate(), "1.0.0.17 2022-7");
    // Static storage: the same address on every call.
    EXPECT_EQ(Version::GetDescStringMajorMinorReleaseRevisionDate(),
              Version::GetDescStringMajorMinorReleaseRevisionDate());
}
