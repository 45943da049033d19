#include "platform/DriverCalls.h"

#include <gtest/gtest.h>
#include <juce_core/juce_core.h>

namespace
{

/** A file in an interface's place: the system lets nobody open it alone who is not alone. */
struct DriverCallsTests : public testing::Test
{
    const juce::TemporaryFile temporary;
    const std::string path = temporary.getFile().getFullPathName().toStdString();
    const HWND window = CreateWindowExA (0, "STATIC", nullptr, 0, 0, 0, 0, 0, HWND_MESSAGE, nullptr, nullptr, nullptr);

    DriverCallsTests() { EXPECT_TRUE (temporary.getFile().replaceWithText ("nothing")); }
    ~DriverCallsTests() override { DestroyWindow (window); }

    bool isOpen() const
    {
        const auto file = CreateFileA (path.c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr);
        return file == INVALID_HANDLE_VALUE || CloseHandle (file) == FALSE;
    }
};

/** Whoever allows one open file only would else refuse the next one. */
TEST_F (DriverCallsTests, whatIsClosedCanBeOpenedAtOnce)
{
    constexpr int numOpens = 300;

    for (int i = 0; i < numOpens; ++i)
    {
        const auto handle = DriverCalls::open (path.c_str(), window);
        ASSERT_NE (handle, INVALID_HANDLE_VALUE);
        ASSERT_TRUE (isOpen());

        if (i % 2 == 0)
        {
            DriverCalls::closeFile (handle);
            ASSERT_FALSE (isOpen());
            EXPECT_FALSE (DriverCalls::request (handle, 0, nullptr, 0, nullptr, 0));
            EXPECT_EQ (GetLastError(), DWORD { ERROR_INVALID_HANDLE });
        }

        DriverCalls::close (handle);
        ASSERT_FALSE (isOpen()) << i;
    }
}

TEST_F (DriverCallsTests, whatCannotBeWatchedIsOpenedAllTheSame)
{
    for (auto* const nobody : { HWND {}, reinterpret_cast<HWND> (LONG_PTR { 1 }) })
    {
        const auto handle = DriverCalls::open (path.c_str(), nobody);
        EXPECT_NE (handle, INVALID_HANDLE_VALUE);
        EXPECT_FALSE (DriverCalls::isAbout ({}, handle));
        DriverCalls::close (handle);
    }

    EXPECT_EQ (DriverCalls::open ((path + "x").c_str(), window), INVALID_HANDLE_VALUE);
    EXPECT_EQ (GetLastError(), DWORD { ERROR_FILE_NOT_FOUND });
}

} // namespace
