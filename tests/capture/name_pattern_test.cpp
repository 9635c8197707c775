// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include "capture/filter_names.h"
#include "capture/name_pattern.h"

namespace {

using namespace vorncapture;

TEST(NamePattern, PlacesStandForWhatIsKnown)
{
    using namespace std::chrono;
    NameParts parts{.number = 7, .start = sys_days{2024y / February / 29} + 23h + 59min + 58s};
    parts.exposureSeconds = 2.5;
    parts.celsius = -10.24;
    parts.camera = "Vorn K12";
    parts.object = "M 31/32";
    constexpr std::pair<const char*, const char*> ROWS[] = {
        {"a.fits", "a.fits"},
        {"{n}-{n:4}", "7-0007"},
        {"{date}-{type}-{seconds}s", "20240229-235958-light-2.5s"},
        {"{temp}C-{filter}-{camera}-{object}", "-10.2C-none-Vorn-K12-M-31-32"},
        {"a{", nullptr},
        {"a}b", nullptr},
        {"{n:0}", nullptr},
        {"{n:10}", nullptr},
        {"{}", nullptr},
    };
    for (const auto& [pattern, name] : ROWS) {
        const auto filled = fillPattern(pattern, parts);
        ASSERT_EQ(filled.ok(), name != nullptr) << pattern;
        if (name != nullptr) {
            EXPECT_EQ(filled.value(), name);
        }
    }
}

TEST(NamePattern, ASequenceWithoutNumbersGetsThem)
{
    EXPECT_EQ(patternForSequence("a.fits", 1), "a.fits");
    EXPECT_EQ(patternForSequence("a.fits", 2), "a-{n:3}.fits");
    EXPECT_EQ(patternForSequence("dir.d/a", 12000), "dir.d/a-{n:5}");
    EXPECT_EQ(patternForSequence("dir/a.fits", 2) + patternForSequence("dir/.a", 2) + patternForSequence(".a", 2),
              "dir/a-{n:3}.fitsdir/.a-{n:3}.a-{n:3}");
    EXPECT_EQ(patternForSequence("{n}.fits", 9), "{n}.fits");
}

TEST(FilterNames, StandForPositions)
{
    const auto names = FilterNames::parse("L, Red,, H alpha");
    ASSERT_TRUE(names.ok());
    constexpr std::pair<const char*, unsigned int> ROWS[] = {
        {"l", 1}, {"RED", 2}, {"h alpha", 4}, {"3", 3}, {"255", 255}, {"256", 0}, {"0", 0}, {"", 0}, {"blue", 0}};
    for (const auto& [text, position] : ROWS) {
        const auto found = names.value().positionOf(text);
        ASSERT_EQ(found.ok(), position != 0) << text;
        EXPECT_EQ(found.ok() ? found.value() : 0, position) << text;
    }
    EXPECT_EQ(names.value().nameOf(1) + names.value().nameOf(4), "LH alpha");
    EXPECT_EQ(names.value().nameOf(3) + names.value().nameOf(5) + names.value().nameOf(0), "350");
    EXPECT_EQ(names.value().positionOf("blue").error().text,
              "\"blue\" is no filter: give its position, from 1, L, Red, H alpha");
    for (const char* nonsense : {"L,R,l", "L,2"})
        EXPECT_FALSE(FilterNames::parse(nonsense).ok()) << nonsense;
    EXPECT_EQ(FilterNames::parse("").value().nameOf(1), "1");
}

}  // namespace
