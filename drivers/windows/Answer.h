#pragma once

#include "drivers/windows/TestBus.h"

#include <cstdarg>
#include <cstdio>

/** The text that an order is answered with. What is too long for it is cut. */
class Answer
{
public:
    /** @param newText  memory for TestBus::maximumAnswer bytes and a 0 byte; owned by the caller */
    explicit Answer (char* newText) : text (newText) { restart(); }

    /** As printf; numbers of 64 bits are "%I64u". */
    void add (const char* format, ...)
    {
        va_list values;
        va_start (values, format);
        const auto room = TestBus::maximumAnswer - length;
        const auto added = _vsnprintf (text + length, room, format, values);
        va_end (values);
        length += added >= 0 && static_cast<std::uint32_t> (added) < room ? static_cast<std::uint32_t> (added) : room;
    }

    void restart()
    {
        length = 0;
        text[0] = text[TestBus::maximumAnswer] = 0;
    }

    /** Without the 0 byte at the end. */
    std::uint32_t getLength() const { return length; }

private:
    char* text;
    std::uint32_t length = 0;
};
