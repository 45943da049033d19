#include "platform/DriverHandle.h"

#include <cstring>
#include <utility>

static DriverHandle::Waits& getWaits()
{
    // Never destroyed: nobody knows who still waits at the program's end.
    static auto& waits = *new DriverHandle::Waits;
    return waits;
}

std::unique_ptr<DriverHandle> DriverHandle::open (const char* path, HWND window)
{
    auto& waits = getWaits();
    const auto start = waits.now();
    bool answered = false;
    auto line = DriverLine::open (path, window, waits.others.begin (start, false), answered);
    waits.others.end (start, waits.now(), answered);
    return line != nullptr ? std::make_unique<DriverHandle> (std::move (line), waits, ! answered) : nullptr;
}

DriverHandle::DriverHandle (std::unique_ptr<DriverLine> lineToUse, Waits& waitsToUse, bool isOpening)
    : line (std::move (lineToUse)),
      waits (waitsToUse),
      isOwed (isOpening),
      sent (waits.now())
{
}

DriverHandle::~DriverHandle()
{
    closeFile();
}

//==============================================================================
DriverHandle::Outcome DriverHandle::request (Kind kind,
                                             DWORD controlCode,
                                             const void* input,
                                             DWORD inputSize,
                                             void* output,
                                             DWORD outputSize)
{
    // Waiting for another thread's request is waiting for somebody who waits for the driver, and is counted there.
    const std::scoped_lock locked (lock);
    takeOwedAnswer (kind == Kind::act);

    const DWORD header[] { controlCode, outputSize };
    const auto* headerBytes = reinterpret_cast<const char*> (header);
    const auto* inputBytes = static_cast<const char*> (input);
    Bytes question (headerBytes, headerBytes + sizeof (header));
    question.insert (question.end(), inputBytes, inputBytes + inputSize);

    if (kind == Kind::act)
        late.clear(); // what was seen before it is old

    for (auto found = late.begin(); found != late.end(); ++found)
    {
        if (found->question != question)
            continue;

        const auto outcome = deliver (found->answer, output);
        late.erase (found);
        return outcome;
    }

    if (isOwed)
        return Outcome::unanswered;

    if (! line->send (controlCode, input, inputSize, output, outputSize))
        return Outcome::failed;

    kindAsked = kind;
    asked = std::move (question);
    sent = waits.now();
    isOwed = ! await (kind == Kind::look ? waits.looks : waits.others, wasLate);
    wasLate = isOwed;
    return isOwed ? Outcome::unanswered : deliver (answer, output);
}

bool DriverHandle::owesAnswer()
{
    const std::scoped_lock locked (lock);
    takeOwedAnswer (false);
    return isOwed;
}

void DriverHandle::closeFile()
{
    const std::scoped_lock locked (lock);

    if (std::exchange (isClosed, true))
        return;

    if (isOwed)
        line->cancel();

    const auto start = waits.now();
    const auto closed = line->close (waits.others.begin (start, isOwed));
    waits.others.end (start, waits.now(), closed);
}

//==============================================================================
/** Call with the lock held, as the others. */
bool DriverHandle::await (DriverPatience& patience, bool wasLateBefore)
{
    const auto start = waits.now();
    const auto answered = line->receive (answer, patience.begin (start, wasLateBefore));
    patience.end (start, waits.now(), answered);
    return answered;
}

/** A driver that is only slow is waited for, one that has been silent for longer is not. */
void DriverHandle::takeOwedAnswer (bool mayWait)
{
    constexpr std::size_t mostLateAnswers = 4;

    if (! isOwed)
        return;

    const auto age = waits.now() - sent;
    isOwed = mayWait && age < silentAfter ? ! await (waits.others, true) : ! line->receive (answer, {});

    if (isOwed && age >= cancelAfter)
        line->cancel();

    if (isOwed || kindAsked == Kind::act)
        return;

    late.push_back ({ std::move (asked), std::move (answer) });

    // Of what is not asked again.
    if (late.size() > mostLateAnswers)
        late.erase (late.begin());
}

/** As the system does it, also what is only a warning has its bytes copied. */
DriverHandle::Outcome DriverHandle::deliver (const DriverAnswer& answerToDeliver, void* output)
{
    if (answerToDeliver.error == DriverAnswer::none)
        return Outcome::unanswered;

    if (! answerToDeliver.bytes.empty())
        std::memcpy (output, answerToDeliver.bytes.data(), answerToDeliver.bytes.size());

    return answerToDeliver.error == ERROR_SUCCESS ? Outcome::succeeded : Outcome::failed;
}
