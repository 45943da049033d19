#include "platform/AccessGuard.h"
#include "platform/Win32.h"

#include <future>
#include <gtest/gtest.h>
#include <tuple>
#include <vector>

namespace
{

/** A page of memory that can be taken away. */
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

/** Reads two numbers with an action in between. Returns whether both could be read, and the numbers, -1 for one that
   could not. Not a template, or compilers would see that code after a fault is unreachable.
*/
std::tuple<bool, int, int> readNumbers (Page& page, void (*between) (Page&))
{
    int first = -1, second = -1;
    const bool isComplete = AccessGuard::readBlock (page.getNumbers(),
                                                    [&] (const AccessGuard::BlockReader& reader)
                                                    {
                                                        first = reader.read<int> (0);
                                                        between (page);
                                                        second = reader.read<int> (sizeof (int));
                                                    });
    return { isComplete, first, second };
}

TEST (AccessGuardTests, whatWasReadBeforeTheFaultStays)
{
    Page page;
    page.getNumbers()[0] = 11;
    page.getNumbers()[1] = 22;
    EXPECT_EQ (readNumbers (page, [] (Page&) {}), std::tuple (true, 11, 22));
    EXPECT_EQ (readNumbers (page, [] (Page&) { AccessGuard::fault(); }), std::tuple (false, 11, -1));
    EXPECT_EQ (readNumbers (page, [] (Page& read) { read.takeAway(); }), std::tuple (false, 11, -1));
}

TEST (AccessGuardTests, anyThreadCanFaultManyTimes)
{
    constexpr int numThreads = 4, numReadings = 500;
    const auto readOften = []
    {
        Page present, absent;
        absent.takeAway();
        int numRight = 0;

        for (int i = 0; i < numReadings; ++i)
            numRight += readNumbers (absent, [] (Page&) {}) == std::tuple (false, -1, -1)
                        && readNumbers (present, [] (Page&) {}) == std::tuple (true, 0, 0);

        return numRight;
    };

    std::vector<std::future<int>> threads (numThreads);

    for (auto& thread : threads)
        thread = std::async (std::launch::async, readOften);

    for (auto& thread : threads)
        EXPECT_EQ (thread.get(), numReadings);
}

/** Repairs the expected access fault by giving the page its memory. */
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
    readNumbers (page, [] (Page&) { AccessGuard::fault(); });
    page.takeAway();

    auto* handler = AddVectoredExceptionHandler (afterAllOthers, repairFault);
    const auto number = *static_cast<volatile int*> (page.getNumbers());
    RemoveVectoredExceptionHandler (handler);
    EXPECT_EQ (number, 0);
}

} // namespace
