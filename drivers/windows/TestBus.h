#pragma once

#include "protocol/RequestKind.h"

/** What the test bus and the program that orders it about say to each other. */
namespace TestBus
{

using DriverProtocol::RequestKind;

inline constexpr wchar_t devicePath[] = L"\\Device\\QuendelTestBus";
inline constexpr wchar_t linkPath[] = L"\\DosDevices\\QuendelTestBus";
inline constexpr char openPath[] = "\\\\.\\QuendelTestBus";

/** Interfaces at a time; each has its slot, which is the last part of its path. */
inline constexpr std::uint32_t numSlots = 4;

enum class Action : std::uint32_t
{
    plug,       /**< A new interface in the slot: text is its name, value the counter's rate. */
    unplug,     /**< Takes the interface away and says so. */
    kill,       /**< The interface answers nothing any more, and nobody is told. */
    rate,       /**< Another sample rate (value, Hz). */
    buffer,     /**< Another buffer size (value, samples). */
    fail,       /**< So many (value) requests of the kind fail. */
    warn,       /**< So many (value) requests of the kind fail, with a warning and a made-up answer. */
    hang,       /**< So many (value) requests of the kind are not answered until they are cancelled or released. */
    hold,       /**< As hang, but they cannot be cancelled. */
    release,    /**< Answers the requests that hang or are held, and lets the next ones pass. */
    exclusive,  /**< Only the first of the files that are open gets answers, now and from now on. */
    slow,       /**< Each request is answered only so many (value) milliseconds after it came. */
    tick,       /**< Lets so many (value) milliseconds pass in every interface; nothing else does. */
    glitch,     /**< The host is late for the next buffer. */
    limitLog,   /**< The event log holds so many (value) entries, now and from now on. */
    takeView,   /**< Takes the statistics block out of every process that has it. */
    removeLink, /**< Nobody can open the interface any more. */
    look        /**< Only the reply is wanted. */
};

/** CTL_CODE (FILE_DEVICE_UNKNOWN, 0x800, METHOD_BUFFERED, FILE_ANY_ACCESS); an Order in, a State out. */
inline constexpr std::uint32_t orderCode = 0x222000;

struct Order
{
    Action action;
    std::uint32_t slot; /**< 0 to numSlots - 1. */
    RequestKind kind;
    std::uint32_t unused;
    std::int64_t value;
    char text[64]; /**< Ends with a 0 byte. */
};

/** Of the interface in the order's slot; all 0 when there is none. */
struct State
{
    std::uint32_t isPresent;
    std::uint32_t numOpens;    /**< So far. */
    std::uint32_t numViews;    /**< Processes' views of the statistics block. */
    std::uint32_t numWaiting;  /**< Requests that hang or are held. */
    std::uint64_t highestView; /**< Address that the views lie at or below; 0 when there are none. */
    std::uint32_t received[DriverProtocol::numRequestKinds]; /**< Requests so far, by kind, whatever became of them. */
};

static_assert (sizeof (Order) == 88);
static_assert (sizeof (State) == 56);

} // namespace TestBus
