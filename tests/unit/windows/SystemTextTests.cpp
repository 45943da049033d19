#include "platform/SystemText.h"
#include "platform/Win32.h"

#include <gtest/gtest.h>

namespace
{

/** Every name that the active code page has comes back as it was, whatever code page that is. */
TEST (SystemTextTests, namesSurviveTheActiveCodePage)
{
    int numKnown = 0;

    for (const std::wstring name : { L"Tamrix-1", L"Zw\u00f6lf", L"Za\u017c\u00f3\u0142\u0107", L"\u6771\u4eac" })
    {
        char bytes[64] {};
        BOOL isLost = FALSE;
        auto* lost = GetACP() == CP_UTF8 ? nullptr : &isLost; // there it is not to be asked
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

    // ASCII, and one more that this test was started with the code page of.
    std::cout << "code page " << GetACP() << ", " << numKnown << " of 4 names" << std::endl;
    EXPECT_GE (numKnown, 2) << GetACP();
}

} // namespace
