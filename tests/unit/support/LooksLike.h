#pragma once

#include <juce_gui_basics/juce_gui_basics.h>

/** Whether two images of the same size have the same pixels. */
inline bool looksLike (const juce::Image& a, const juce::Image& b)
{
    for (int y = 0; y < a.getHeight(); ++y)
        for (int x = 0; x < a.getWidth(); ++x)
            if (a.getPixelAt (x, y) != b.getPixelAt (x, y))
                return false;

    return true;
}
