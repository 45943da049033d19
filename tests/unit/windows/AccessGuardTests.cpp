#include "platform/AccessGuard.h"
#include "platform/Win32.h"

#include <atomic>
#include <gtest/gtest.h>
#include <thread>
#include <vector>

namespace
{

/** One page of memory, which can be taken away. */
class Page
{
public:
    Page() : bytes (VirtualAlloc (nullptr, size, MEM_RESERVE | MEM_COMMIT, PAGE_READWRITE)) {}
    ~Page() { VirtualFree (bytes, 0, MEM_RELEASE); }
    Page (const Page&) = delete;
    Page& operator= (const Page&) = delete;

    int* getNumbers() { return static_cast<int*> (bytes); }
    void takeAway() { VirtualFree (bytes, size, MEM_DECOMMIT); }

private:
    static constexpr SIZE_T size = 4096;
    void* bytes;
};

/** Reads the first and the second number, with something in between; what was not read stays -1. */
struct Reading
{
    int first = -1, second = -1;
    bool isComplete = false;

    template <typename Between>
    explicit Reading (const void* block, Between&& between)
    {
        isComplete = AccessGuard::readBlock (block,
                                             [&] (const AccessGuard::BlockReader& reader)
                                             {
                                                 first = reader.read<int> (0);
                                                 between();
                                                 second = reader.read<int> (sizeof (int));
                                             });
    }
};

TEST (AccessGuardTests, whatIsThereIsRead)
{
    Page page;
    page.getNumbers()[0] = 11;
    page.getNumbers()[1] = 22;
    const Reading reading (page.getNumbers(), [] {});
    EXPECT_TRUE (reading.isComplete);
    EXPECT_EQ (reading.first, 11);
    EXPECT_EQ (reading.second, 22);
}

TEST (AccessGuardTests, whatWasReadBeforeTheFaultStays)
{
    Page page;
    page.getNumbers()[0] = 11;
    const Reading reading (page.getNumbers(), [&] { page.takeAway(); });
    EXPECT_FALSE (reading.isComplete);
    EXPECT_EQ (reading.first, 11);
    EXPECT_EQ (reading.second, -1);
}

TEST (AccessGuardTests, faultEndsTheReadingAsAnAccessFaultWould)
{
    Page page;
    const Reading reading (page.getNumbers(), [] { AccessGuard::fault(); });
    EXPECT_FALSE (reading.isComplete);
    EXPECT_EQ (reading.first, 0);
    EXPECT_EQ (reading.second, -1);
}

TEST (AccessGuardTests, anyThreadCanFaultManyTimes)
{
    constexpr int numThreads = 4;
    constexpr int numReadings = 500;
    std::atomic<int> numFaults { 0 }, numComplete { 0 };

    const auto readOften = [&]
    {
        Page present, absent;
        absent.takeAway();

        for (int i = 0; i < numReadings; ++i)
        {
            numFaults += Reading (absent.getNumbers(), [] {}).isComplete ? 0 : 1;
            numComplete += Reading (present.getNumbers(), [] {}).isComplete ? 1 : 0;
        }
    };

    std::vector<std::thread> threads;

    for (int i = 0; i < numThreads; ++i)
        threads.emplace_back (readOften);

    for (auto& thread : threads)
        thread.join();

    EXPECT_EQ (numFaults, numThreads * numReadings);
    EXPECT_EQ (numComplete, numThreads * numReadings);
}

/** Repairs the one access fault that it waits for, by giving the page its memory. */
LONG CALLBACK repairFault (EXCEPTION_POINTERS* exception)
{
    constexpr SIZE_T pageSize = 4096;
    auto* address = reinterpret_cast<void*> (exception->ExceptionRecord->ExceptionInformation[1]);

    return VirtualAlloc (address, pageSize, MEM_COMMIT, PAGE_READWRITE) != nullptr ? EXCEPTION_CONTINUE_EXECUTION
                                                                                   : EXCEPTION_CONTINUE_SEARCH;
}

TEST (AccessGuardTests, faultsOutsideOfAReadingAreOthersBusiness)
{
    constexpr ULONG afterAllOthers = 0;

    Page page;
    Reading (page.getNumbers(), [] {});
    Reading (page.getNumbers(), [] { AccessGuard::fault(); });
    page.takeAway();

    auto* handler = AddVectoredExceptionHandler (afterAllOthers, repairFault);
    const auto number = *static_cast<volatile int*> (page.getNumbers());
    RemoveVectoredExceptionHandler (handler);
    EXPECT_EQ (number, 0);
}

} // namespace
