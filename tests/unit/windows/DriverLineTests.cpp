#include "platform/DriverHandle.h"

#include <gtest/gtest.h>
#include <juce_core/juce_core.h>

namespace
{

/** A file stands for an interface; the system refuses to open it exclusively while it is open elsewhere. */
struct DriverLineTests : public testing::Test
{
    const juce::TemporaryFile temporary;
    const std::string path = temporary.getFile().getFullPathName().toStdString();
    const HWND window = CreateWindowExA (0, "STATIC", nullptr, 0, 0, 0, 0, 0, HWND_MESSAGE, nullptr, nullptr, nullptr);

    DriverLineTests() { EXPECT_TRUE (temporary.getFile().replaceWithText ("nothing")); }
    ~DriverLineTests() override { DestroyWindow (window); }

    bool isOpen() const
    {
        const auto file = CreateFileA (path.c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr);
        return file == INVALID_HANDLE_VALUE || CloseHandle (file) == FALSE;
    }
};

/** A driver that allows only one open file would otherwise refuse the next open. */
TEST_F (DriverLineTests, whatIsClosedCanBeOpenedAtOnce)
{
    constexpr int numOpens = 300;

    for (int i = 0; i < numOpens; ++i)
    {
        auto handle = DriverHandle::open (path.c_str(), window);
        ASSERT_NE (handle, nullptr);
        ASSERT_TRUE (isOpen());

        if (i % 2 == 0)
        {
            handle->closeFile();
            ASSERT_FALSE (isOpen());
            EXPECT_EQ (handle->request (DriverHandle::Kind::act, 0, nullptr, 0, nullptr, 0),
                       DriverHandle::Outcome::failed);
        }

        handle.reset();
        ASSERT_FALSE (isOpen()) << i;
    }
}

TEST_F (DriverLineTests, whatCannotBeWatchedIsOpenedAllTheSame)
{
    for (auto* const nobody : { HWND {}, reinterpret_cast<HWND> (LONG_PTR { 1 }) })
    {
        const auto handle = DriverHandle::open (path.c_str(), nobody);
        ASSERT_NE (handle, nullptr);
        EXPECT_FALSE (handle->isAbout ({}));
    }

    EXPECT_EQ (DriverHandle::open ((path + "x").c_str(), window), nullptr);
}

} // namespace
