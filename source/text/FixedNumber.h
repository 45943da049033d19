#pragma once

#include <array>
#include <charconv>
#include <string_view>

/** A number with so many decimals, as printf writes it in the C locale. The user's is in force at moments: the toolkit
    switches the whole process while it looks up the text of a key press. Any thread.
*/
class FixedNumber
{
public:
    FixedNumber (double number, int decimals)
        : end (std::to_chars (digits.data(), digits.data() + digits.size(), number, std::chars_format::fixed, decimals)
                   .ptr)
    {
    }

    FixedNumber (const FixedNumber&) = delete;
    FixedNumber& operator= (const FixedNumber&) = delete;

    /** Valid as long as the number. */
    std::string_view getText() const { return { digits.data(), static_cast<std::size_t> (end - digits.data()) }; }

private:
    std::array<char, 64> digits; // room for all that 64 bits can count, in ticks of any length
    const char* const end;
};
