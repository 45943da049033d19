#include "platform/DriverHandle.h"

#include <algorithm>
#include <cstring>
#include <utility>

static DriverHandle::Waits& getWaits()
{
    // Never destroyed: a thread may still wait when the program ends.
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
      isOutstanding (isOpening),
      sent (waits.now())
{
}

DriverHandle::~DriverHandle()
{
    closeFile();
}

//==============================================================================
/** Control code, size of the output, input. */
static std::vector<char> makeQuestion (DWORD controlCode, const void* input, DWORD inputSize, DWORD outputSize)
{
    const DWORD header[] { controlCode, outputSize };
    std::vector<char> question (sizeof (header) + inputSize);
    std::memcpy (question.data(), header, sizeof (header));
    std::copy_n (static_cast<const char*> (input), inputSize, question.data() + sizeof (header));
    return question;
}

void DriverHandle::ask (DWORD controlCode, const void* input, DWORD inputSize, const void* output, DWORD outputSize)
{
    const std::scoped_lock locked (lock);
    takeOutstandingAnswer (false);
    auto question = makeQuestion (controlCode, input, inputSize, outputSize);

    if (! isOutstanding && findLateAnswer (question) == nullptr)
        isUnderWay = isOutstanding = send (Kind::look, std::move (question), input, inputSize, output);
}

DriverHandle::Outcome DriverHandle::request (Kind kind,
                                             DWORD controlCode,
                                             const void* input,
                                             DWORD inputSize,
                                             void* output,
                                             DWORD outputSize)
{
    // Waiting for another thread's request is waiting for somebody who waits for the driver, and is counted there.
    const std::scoped_lock locked (lock);
    auto question = makeQuestion (controlCode, input, inputSize, outputSize);

    if (! std::exchange (isUnderWay, false) || ! isOutstanding || asked != question)
    {
        takeOutstandingAnswer (kind == Kind::act);

        if (kind == Kind::act)
            late.clear(); // what was seen before it is out of date

        if (auto* found = findLateAnswer (question); found != nullptr)
        {
            const auto outcome = deliver (found->answer, output);
            late.erase (late.begin() + (found - late.data()));
            return outcome;
        }

        if (isOutstanding)
            return Outcome::unanswered;

        if (! send (kind, std::move (question), input, inputSize, output))
            return Outcome::failed;
    }

    isOutstanding = ! await (kind == Kind::look ? waits.looks : waits.others, wasLate);
    wasLate = isOutstanding;
    return isOutstanding ? Outcome::unanswered : deliver (answer, output);
}

bool DriverHandle::hasOutstandingRequest()
{
    const std::scoped_lock locked (lock);
    takeOutstandingAnswer (false);
    return isOutstanding;
}

void DriverHandle::closeFile()
{
    const std::scoped_lock locked (lock);

    if (std::exchange (isClosed, true))
        return;

    if (isOutstanding)
        line->cancel();

    const auto start = waits.now();
    const auto closed = line->close (waits.others.begin (start, isOutstanding));
    waits.others.end (start, waits.now(), closed);
}

//==============================================================================
/** Call with the lock held, as the others. */
DriverHandle::LateAnswer* DriverHandle::findLateAnswer (const Bytes& question)
{
    const auto found = std::find_if (late.begin(),
                                     late.end(),
                                     [&question] (const auto& candidate) { return candidate.question == question; });
    return found != late.end() ? &*found : nullptr;
}

bool DriverHandle::send (Kind kind, Bytes question, const void* input, DWORD inputSize, const void* output)
{
    DWORD header[2];
    std::memcpy (header, question.data(), sizeof (header));
    kindAsked = kind;
    asked = std::move (question);
    sent = waits.now();
    return line->send (header[0], input, inputSize, output, header[1]);
}

bool DriverHandle::await (WaitBudget& budget, bool wasLateBefore)
{
    const auto start = waits.now();
    const auto answered = line->receive (answer, budget.begin (start, wasLateBefore));
    budget.end (start, waits.now(), answered);
    return answered;
}

/** Waits for a driver that is only slow, not for one that has been silent for longer. */
void DriverHandle::takeOutstandingAnswer (bool mayWait)
{
    constexpr std::size_t mostLateAnswers = 4;

    if (! isOutstanding)
        return;

    const auto age = waits.now() - sent;
    isOutstanding = mayWait && age < silentAfter ? ! await (waits.others, true) : ! line->receive (answer, {});

    if (isOutstanding && age >= cancelAfter)
        line->cancel();

    if (isOutstanding || kindAsked == Kind::act)
        return;

    late.push_back ({ std::move (asked), std::move (answer) });

    // Answers to what is not asked again.
    if (late.size() > mostLateAnswers)
        late.erase (late.begin());
}

/** As in the system, a warning copies its bytes, too. */
DriverHandle::Outcome DriverHandle::deliver (const DriverAnswer& answerToDeliver, void* output)
{
    if (answerToDeliver.error == DriverAnswer::none)
        return Outcome::unanswered;

    if (! answerToDeliver.bytes.empty())
        std::memcpy (output, answerToDeliver.bytes.data(), answerToDeliver.bytes.size());

    return answerToDeliver.error == ERROR_SUCCESS ? Outcome::succeeded : Outcome::failed;
}
