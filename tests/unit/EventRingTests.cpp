#include "drivers/machine/EventRing.h"

#include <gtest/gtest.h>

#include <memory>
#include <sstream>

namespace
{
using DriverProtocol::EventType;
using Machine::EventReader;
using Machine::EventRing;

/** A log whose times are milliseconds. */
class EventRingTests : public testing::Test
{
protected:
    void append (std::int64_t time, std::uint32_t parameter = 0)
    {
        ring->append ({ time, parameter, EventType::talkComplete, 0 });
    }

    /** Adds an event for each millisecond since the last one. */
    void passUntil (std::int64_t end)
    {
        while (now < end)
            append (now++);
    }

    /** The spans of time that the log holds without a gap. */
    std::string describe() const
    {
        std::ostringstream text;

        for (std::uint32_t i = 0; i < ring->getLength(); ++i)
        {
            const auto time = ring->get (i).time;

            if (i == 0 || ring->get (i - 1).time != time - 1)
                text << time << '-';

            if (i + 1 == ring->getLength() || ring->get (i + 1).time != time + 1)
                text << time << ' ';
        }

        return text.str();
    }

    const std::unique_ptr<EventRing> ring = std::make_unique<EventRing>();
    std::int64_t now = 0;
};

TEST_F (EventRingTests, holdTheNewestInOrderOfTimeWhateverOrderTheyComeIn)
{
    passUntil (EventRing::maximumLength);
    append (5, 1);
    append (5, 2);
    EXPECT_EQ (ring->get (4).parameter, 1u) << "behind those of the same time";
    EXPECT_EQ (ring->get (5).parameter, 2u);
    append (1);
    EXPECT_EQ (ring->get (0).time, 2) << "it would be the oldest of a full log";
    passUntil (EventRing::maximumLength + 100);
    EXPECT_EQ (describe(), "100-16483 ");
}

TEST_F (EventRingTests, keepWhatIsAroundTheLastXruns)
{
    passUntil (5000);
    ring->markXrun (4990, 1000);
    passUntil (40'000);
    EXPECT_EQ (describe(), "2990-5990 26617-39999 ");

    // Two xruns near each other.
    ring->markXrun (39'000, 1000);
    ring->markXrun (39'500, 1000);
    passUntil (60'000);
    EXPECT_EQ (describe(), "2990-5990 37000-40500 50118-59999 ");

    // What is around xruns has half of the log, and the oldest of it goes first, too.
    ring->markXrun (60'000, 1000);
    passUntil (90'000);
    EXPECT_EQ (describe(), "4301-5990 37000-40500 58000-61000 81808-89999 ");
    ring->restartWithLimit (1);
    passUntil (90'002);
    EXPECT_EQ (describe(), "90001-90001 ");
}

TEST_F (EventRingTests, areReadAsTheyWereWhenTheReaderBegan)
{
    const auto first = std::make_unique<EventReader>(), second = std::make_unique<EventReader>();
    const auto read = [this] (const auto& reader, std::uint32_t index) { return reader->read (*ring, index, 1000); };

    EXPECT_EQ (read (first, 0).type, DriverProtocol::noSuchEntry);
    passUntil (EventRing::maximumLength);
    EXPECT_EQ (read (first, 0).timestamp, 0);
    passUntil (now + 1);
    EXPECT_EQ (read (second, 0).timestamp, 1);
    EXPECT_EQ (read (first, EventRing::maximumLength - 1).timestamp, now - 2);
    EXPECT_EQ (read (second, EventRing::maximumLength - 1).timestamp, now - 1);
    EXPECT_EQ (read (first, EventRing::maximumLength).type, DriverProtocol::noSuchEntry);
}

} // namespace
