#pragma once

#include "platform/DriverLine.h"
#include "platform/WaitBudget.h"
#include <mutex>

/** One open device interface, and what becomes of requests that its driver answers late or never.

    A request that was not answered in time is given up, but stays outstanding: until its answer has come nothing else
    is sent. Late is not dead. What is asked again and again takes a late answer for the next one, so that a slow
    driver's figures are a look old; and once a driver has answered, however late, nothing is held against it. Any
    thread.
*/
class DriverHandle
{
public:
    /** What a request is, which says how long is waited for it. */
    enum class Kind
    {
        look,    /**< Repeated all the time: a late answer is that of the next one, and is not waited for at length. */
        lasting, /**< Waited for at length; should it be asked again, a late answer is that of the next one. */
        act      /**< Waited for at length, also for an answer that is outstanding; a late one is dropped. */
    };

    enum class Outcome
    {
        succeeded,
        failed,
        unanswered /**< The driver has not answered in time, or has not been asked, as another answer is outstanding. */
    };

    /** The waits that handles share, and their clock. */
    struct Waits
    {
        WaitBudget looks {
            { std::chrono::milliseconds (800), std::chrono::milliseconds (50), std::chrono::milliseconds (15) }
        };
        WaitBudget others {
            { std::chrono::milliseconds (1100), std::chrono::milliseconds (1100), std::chrono::milliseconds (100) }
        };
        WaitBudget::Time (*now)() = std::chrono::steady_clock::now;
    };

    /** The parameters are those of DriverLine::open. @returns null when the interface cannot be opened */
    static std::unique_ptr<DriverHandle> open (const char* path, HWND window);

    /** @param isOpening  whether the line has still to answer that it is open */
    DriverHandle (std::unique_ptr<DriverLine> lineToUse, Waits& waitsToUse, bool isOpening = false);

    /** Closes the file; nothing more comes from it. */
    ~DriverHandle();

    /** DeviceIoControl; input and output may be the same. Unanswered, it leaves the output as it was. */
    Outcome request (Kind kind, DWORD controlCode, const void* input, DWORD inputSize, void* output, DWORD outputSize);

    /** The first half of a look, which waits for nothing: the same look by request() then finds it under way. So
        several drivers can work on their answers at the same time.
    */
    void ask (DWORD controlCode, const void* input, DWORD inputSize, const void* output, DWORD outputSize);

    /** Whether a request has been given up and not been answered since. */
    bool hasOutstandingRequest();

    /** Whether a notification, whole, is about the open file; also after closeFile. */
    bool isAbout (const DEV_BROADCAST_HANDLE& notification) const { return line->isAbout (notification); }

    /** Closes the file, and waits for that as for a request: who opens it next is not kept out by it. */
    void closeFile();

private:
    using Bytes = std::vector<char>;

    struct LateAnswer
    {
        Bytes question;
        DriverAnswer answer;
    };

    LateAnswer* findLateAnswer (const Bytes& question);
    bool send (Kind kind, Bytes question, const void* input, DWORD inputSize, const void* output);
    bool await (WaitBudget& budget, bool wasLateBefore);
    void takeOutstandingAnswer (bool mayWait);
    static Outcome deliver (const DriverAnswer& answerToDeliver, void* output);

    static constexpr std::chrono::seconds silentAfter { 1 }, cancelAfter { 5 };

    const std::unique_ptr<DriverLine> line;
    Waits& waits;
    std::mutex lock;
    bool isClosed = false;
    bool isOutstanding;
    bool isUnderWay = false; // what is outstanding was sent by ask(), and not waited for
    bool wasLate = false;    // when it was last sent something
    Kind kindAsked = Kind::act;
    Bytes asked;                  // control code, size of the output, input
    WaitBudget::Time sent;        // when that was
    DriverAnswer answer;          // to it
    std::vector<LateAnswer> late; // to what may be asked again
};
