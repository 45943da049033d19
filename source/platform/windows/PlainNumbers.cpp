#include "platform/PlainNumbers.h"

/** Nobody switches the process's locale here. */
struct PlainNumbers::Locale
{
};

PlainNumbers::PlainNumbers() = default;
PlainNumbers::~PlainNumbers() = default;
