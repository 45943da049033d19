#include "platform/DriverHandle.h"

#include <functional>
#include <gtest/gtest.h>
#include <utility>

using namespace std::chrono_literals;

namespace
{

using Duration = WaitBudget::Duration;
using Kind = DriverHandle::Kind;
using Outcome = DriverHandle::Outcome;

constexpr Duration never = 24h;
WaitBudget::Time now;

/** A driver on a simulated clock. It answers each request with the request's number, after the delay it is given. */
struct Driver
{
    struct Line final : public DriverLine
    {
        explicit Line (Driver& driverToAsk) : driver (driverToAsk) {}

        bool send (DWORD, const void*, DWORD, const void*, DWORD) override
        {
            due = now + driver.answersAfter (++driver.numAsked);
            return true;
        }

        bool receive (DriverAnswer& answer, Duration limit) override
        {
            const bool inTime = due - now <= limit;
            now = inTime ? std::max (now, due) : now + limit;

            if (inTime)
                answer = { std::exchange (isCancelled, false) ? DriverAnswer::none : DWORD { ERROR_SUCCESS },
                           { static_cast<char> (driver.numAsked) } };

            return inTime;
        }

        void cancel() override { due = now, isCancelled = true; }
        bool isAbout (const DEV_BROADCAST_HANDLE&) const override { return false; }
        bool close (Duration) override { return true; }

        Driver& driver;
        WaitBudget::Time due;
        bool isCancelled = false;
    };

    Driver (DriverHandle::Waits& waits, Duration answers) : handle (std::make_unique<Line> (*this), waits)
    {
        answerAfter (answers);
    }

    void answerAfter (Duration answers)
    {
        answersAfter = [answers] (int) { return answers; };
    }

    Outcome request (Kind kind, char question = 'q') { return handle.request (kind, 1, &question, 1, &figure, 1); }

    std::function<Duration (int)> answersAfter;
    int numAsked = 0;
    char figure = 0;
    DriverHandle handle;
    WaitBudget::Time moved = now;
};

/** Drivers that are asked for their figures four times a second; the last, which is the newest, twice each time. */
struct DriverHandleTests : public testing::Test
{
    DriverHandleTests()
    {
        now = WaitBudget::Time (1h);
        waits.now = [] { return now; };
    }

    Driver& add (Duration answers, int number = 1)
    {
        while (number-- > 0)
            drivers.push_back (std::make_unique<Driver> (waits, answers));

        return *drivers.back();
    }

    /** Asks all drivers; returns how long that took. */
    Duration tick()
    {
        const auto start = now;

        for (const auto& driver : drivers)
            driver->moved = driver->request (Kind::look, 'c') == Outcome::succeeded ? now : driver->moved;

        statusMoved = drivers.back()->request (Kind::look, 's') == Outcome::succeeded ? now : statusMoved;
        const auto passed = now - start;
        now = std::max (now, start + 250ms);
        return passed;
    }

    Duration resetAll()
    {
        const auto start = now;

        for (const auto& driver : drivers)
            for (int i = 0; i < 2; ++i)
                driver->request (Kind::act);

        return now - start;
    }

    DriverHandle::Waits waits;
    std::vector<std::unique_ptr<Driver>> drivers;
    WaitBudget::Time statusMoved = now;
};

TEST_F (DriverHandleTests, whoAnswersIsShownHoweverSlowAndBesideWhomever)
{
    for (const auto answers : { 0ms, 40ms, 120ms, 200ms, 600ms, 900ms })
    {
        for (const auto& [others, number] : { std::pair { Duration (50us), 8 }, { never, 64 }, { answers, 7 } })
        {
            drivers.clear();
            add (others, number);
            statusMoved = add (answers).moved;

            for (const auto end = now + 60s; now < end;)
            {
                EXPECT_LE (tick(), 900ms) << answers.count();
                ASSERT_LT (now - std::min (statusMoved, drivers.back()->moved), 3s) << answers.count();
                ASSERT_TRUE (others == never || now - drivers[0]->moved < 4s) << answers.count();
            }
        }
    }
}

TEST_F (DriverHandleTests, afterAHiccupOfAnyLengthAllIsAsBefore)
{
    for (const auto hiccup : { 100ms, 800ms, 4500ms })
    {
        drivers.clear();
        auto& driver = add (0ms);
        driver.answersAfter = [=] (int number) { return number == 7 ? hiccup : 40ms; };

        for (const auto end = now + 2s + hiccup; now < end;)
            tick();

        EXPECT_EQ (tick(), 80ms) << "both looks have their answer at once";
        EXPECT_EQ (driver.moved, statusMoved - 40ms);
    }
}

TEST_F (DriverHandleTests, silenceOfManyIsWaitedForOnceAndTakesNothingFromTheGood)
{
    add (never, 64);
    auto& good = add (1ms);
    EXPECT_LT (resetAll(), 1100ms);
    EXPECT_EQ (good.request (Kind::act), Outcome::succeeded);
    now += 2s;
    EXPECT_EQ (resetAll() + tick(), 4ms) << "only the good one is asked";
    EXPECT_EQ (good.numAsked, 7);

    // The newest driver is silent from its first request on, and a busy machine slows the good ones down.
    auto& newest = add (never);
    good.answerAfter (150ms);
    EXPECT_EQ (newest.request (Kind::lasting), Outcome::unanswered);
    EXPECT_EQ (good.request (Kind::lasting), Outcome::succeeded);

    // The same holds for a slow answer, and for two threads that wait at the same time.
    good.answerAfter (90ms);

    for (int i = 0; i < 100; ++i)
        ASSERT_EQ (good.request (Kind::act), Outcome::succeeded);

    WaitBudget budget ({ 800ms, 800ms, {} });
    EXPECT_EQ (budget.begin (now, false), 300ms);
    EXPECT_EQ (budget.begin (now + 200ms, false), 300ms);
    budget.end (now, now + 300ms, false);
    EXPECT_EQ (budget.begin (now + 700ms, false), 150ms);
}

TEST_F (DriverHandleTests, driversThatAreAskedAheadWorkAtTheSameTime)
{
    add (30ms, 16);

    for (const auto& driver : drivers)
        driver->handle.ask (1, "c", 1, &driver->figure, 1);

    EXPECT_EQ (tick(), 60ms) << "one look at all of them, and one at the newest";
    EXPECT_EQ (drivers.front()->numAsked, 1);

    // A request that changes something waits for the outstanding look, whose answer is then dropped.
    auto& driver = *drivers.front();
    driver.handle.ask (1, "c", 1, &driver.figure, 1);
    EXPECT_EQ (driver.request (Kind::act), Outcome::succeeded);
    EXPECT_EQ (driver.request (Kind::look, 'c'), Outcome::succeeded);
    EXPECT_EQ (driver.numAsked, 4);
    EXPECT_EQ (driver.figure, 4);
}

/** A look or a mapping that is asked for again accepts the late answer; what changes something is sent again. */
TEST_F (DriverHandleTests, lateAnswersServeLooksOnly)
{
    auto& driver = add (0ms);
    const auto ask = [&] (Kind kind, char question, Duration answers)
    {
        driver.answerAfter (answers);
        const auto outcome = driver.request (kind, question);
        now += 700ms;
        return outcome;
    };

    for (const auto kind : { Kind::look, Kind::lasting })
    {
        const auto number = driver.numAsked + 1;
        EXPECT_EQ (ask (kind, 'a', 1400ms), Outcome::unanswered);
        EXPECT_EQ (ask (Kind::look, 'b', 0ms), Outcome::unanswered) << "nothing is sent";
        EXPECT_EQ (ask (Kind::look, 'b', 0ms), Outcome::succeeded);
        EXPECT_EQ (driver.figure, number + 1);
        EXPECT_EQ (ask (kind, 'a', 0ms), Outcome::succeeded);
        EXPECT_EQ (driver.figure, number) << "late twice is late, and no more";
        EXPECT_EQ (driver.numAsked, number + 1);
    }

    driver.answerAfter (400ms);
    EXPECT_EQ (driver.request (Kind::look, 'a'), Outcome::unanswered);
    EXPECT_EQ (ask (Kind::act, 'x', 1400ms), Outcome::unanswered) << "it has its turn behind the look";
    now += 1s;
    const auto numAsked = driver.numAsked;
    EXPECT_EQ (ask (Kind::act, 'x', 0ms), Outcome::succeeded);
    EXPECT_EQ (ask (Kind::look, 'a', 0ms), Outcome::succeeded);
    EXPECT_EQ (driver.numAsked, numAsked + 2) << "the act again, and the look as the act made it old";

    EXPECT_EQ (ask (Kind::lasting, 'a', never), Outcome::unanswered);
    now += 5s;
    EXPECT_TRUE (driver.handle.hasOutstandingRequest()) << "it is told to give up";
    EXPECT_EQ (ask (Kind::lasting, 'a', 0ms), Outcome::unanswered) << "that was no answer";
    EXPECT_EQ (ask (Kind::lasting, 'a', 0ms), Outcome::succeeded);
}

} // namespace
