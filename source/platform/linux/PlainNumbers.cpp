#include "platform/PlainNumbers.h"

#include <clocale>

struct PlainNumbers::Locale
{
    locale_t plain = ::newlocale (LC_ALL_MASK, "C", nullptr);
    locale_t previous = ::uselocale (plain);

    ~Locale()
    {
        ::uselocale (previous);
        ::freelocale (plain);
    }
};

PlainNumbers::PlainNumbers() : locale (std::make_unique<Locale>()) {}
PlainNumbers::~PlainNumbers() = default;
