// What a report says, and how it reaches the host.
#include "facade/facade_internal.h"
#include "tests/facade/host.h"

#include <gtest/gtest.h>

namespace yfs::test {
namespace {

std::string text_of(int code)
{
    return ZonErrors::getErrorNameString(static_cast<ImageToolsErrorName>(code));
}

TEST(ErrorMaps, AnswerForCodesWithAndWithoutText)
{
    ASSERT_TRUE(ZonErrors::init());
    struct row {
        int code;
        const char* text;
    };
    const row rows[] = {
        {0, "No Error"},
        {7, "Decompose Error. "}, // the blank is part of it
        {39, "File name with the PERIODS at the end is not supported"},
        {122, "Buffer overflow detected."},
        {123, "Buffer overflow detected."},
        {371, "Buffer overflow detected."},
        {192, "The provided value of SHA1 is invalid as it is no longer supported. Hash: "},
        {256, "Total TMZ size exeeding maximum size."},
        {408, "Error overriding the logical boot partition size."},
        {8, "General Error"}, // no row
        {410, "General Error"},
        {411, "General Error"},
        {-1, "General Error"},
    };
    for (const row& wanted : rows) EXPECT_EQ(text_of(wanted.code), wanted.text) << wanted.code;
    for (const auto& [code, text] : raised_texts()) EXPECT_EQ(text_of(code), code == 0 ? "No Error" : text) << code;

    EXPECT_EQ(ZonErrors::s_imageToolsErrorNameStringMap.size(), 330U) << "a lookup adds nothing";
    const auto& types = ZonErrors::s_imageToolsErrorTypeStringMap;
    EXPECT_EQ(types.size(), 29U);
    EXPECT_EQ(types.at(yfs_module_none), "No Error");
    EXPECT_EQ(types.at(yfs_module_yfs), "[YE YFS] ");
    EXPECT_EQ(types.at(yfs_module_last), "[Image Metadata Generator] ");
    for (const auto& [type, text] : types) EXPECT_EQ(text.back() == ' ', type != yfs_module_none) << text;
}

TEST(ErrorMaps, AreEmptyBeforeTheFirstInitAndTheSameAfterEach)
{
    ZonErrors::init();
    const auto names = ZonErrors::s_imageToolsErrorNameStringMap;
    const auto types = ZonErrors::s_imageToolsErrorTypeStringMap;

    ZonErrors::s_imageToolsErrorNameStringMap.clear();
    for (const int code : {0, 38, 411}) EXPECT_EQ(text_of(code), "General Error") << code;

    ZonErrors::s_imageToolsErrorNameStringMap[static_cast<ImageToolsErrorName>(411)] = "a host's own";
    ZonErrors::s_imageToolsErrorTypeStringMap[yfs_module_yfs] = "changed";
    ZonErrors::initStringMaps();
    EXPECT_EQ(ZonErrors::s_imageToolsErrorNameStringMap, names);
    EXPECT_EQ(ZonErrors::s_imageToolsErrorTypeStringMap, types);
}

class Reporting : public testing::Test {
protected:
    void SetUp() override
    {
        ZonErrors::init();
        facade::s_yZonStatusCallback = record;
        take_reports();
    }
};

TEST_F(Reporting, GivesLevelCodeTextAndMessage)
{
    facade::yeYfsLogMessage(yfs_level_report, yfs_error_none, "no code");
    facade::yeYfsAssert("a precondition");
    facade::setLibError(yfs_error_write_file, -1);
    facade::setLibError(yfs_error_initialize, 0xFFFFFFFFU);
    facade::setLibError(yfs_error_get_file_size, INT32_MIN);
    EXPECT_EQ(take_reports(), (reports{says(0, "no code"), says(0, "a precondition"), says_status(99, -1),
                                       says_status(1, -1), says_status(336, INT32_MIN)}));

    facade::s_yZonStatusCallback = nullptr;
    facade::yeYfsAssert("nobody hears it");
    EXPECT_EQ(take_reports(), reports{});
}

TEST_F(Reporting, GuardedCopyReportsItsOwnFailure)
{
    char to[4] = {};
    const char from[4] = {1, 2, 3, 4};
    struct row {
        const char* name;
        void* dst;
        const void* src;
        std::uint64_t count;
        std::uint32_t status;
    };
    const row rows[] = {
        {"nothing to copy", nullptr, nullptr, 0, 0},
        {"no target", nullptr, from, 1, 3},
        {"no source", to, nullptr, 1, 3},
        {"does not fit", to, from, 5, 40},
        {"fits", to, from, 4, 0},
    };
    for (const row& wanted : rows) {
        EXPECT_EQ(facade::yeYfsMemCpy(wanted.dst, sizeof to, wanted.src, wanted.count), wanted.status) << wanted.name;
        const reports none, one{says(321, "Memory copy failed with error " + std::to_string(wanted.status))};
        EXPECT_EQ(take_reports(), wanted.status == 0 ? none : one) << wanted.name;
    }
    EXPECT_EQ(to[3], 4);
}

} // namespace
} // namespace yfs::test
