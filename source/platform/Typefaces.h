#pragma once

#include <juce_graphics/juce_graphics.h>

namespace Typefaces
{

/** Sees to it that a text can be read: where the program's typeface lacks a character of it, one that has them all
   becomes the program's typeface for what is made from now on, if the machine has such a one. The toolkit takes a
   text's characters from one typeface only. Message thread.
*/
void makeReadable (const juce::String& text);

} // namespace Typefaces
