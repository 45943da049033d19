#include "platform/SystemText.h"
#include "platform/Win32.h"

#include <gtest/gtest.h>

namespace
{

/** Every name that can be written in the active code page survives it, whichever code page that is. */
TEST (SystemTextTests, namesSurviveTheActiveCodePage)
{
    int numKnown = 0;

    for (const std::wstring name : { L"Tamrix-1", L"Zw\u00f6lf", L"Za\u017c\u00f3\u0142\u0107", L"\u6771\u4eac" })
    {
        char bytes[64] {};
        BOOL isLost = FALSE;
        auto* lost = GetACP() == CP_UTF8 ? nullptr : &isLost; // UTF-8 allows no such question
        WideCharToMultiByte (CP_ACP,
                             WC_NO_BEST_FIT_CHARS * (lost != nullptr),
                             name.c_str(),
                             -1,
                             bytes,
                             63,
                             nullptr,
                             lost);

        if (! isLost)
        {
            ++numKnown;
            EXPECT_EQ (SystemText::decode (bytes), juce::String (name.c_str())) << GetACP();
        }
    }

    // The ASCII name, and the one in the code page that this test was started with.
    std::cout << "code page " << GetACP() << ", " << numKnown << " of 4 names" << std::endl;
    EXPECT_GE (numKnown, 2) << GetACP();
}

} // namespace
