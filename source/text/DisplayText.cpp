#include "text/DisplayText.h"

#include <algorithm>
#include <array>
#include <vector>

namespace
{
using Letters = std::vector<juce::juce_wchar>;

bool isWithin (juce::juce_wchar c, juce::juce_wchar first, juce::juce_wchar last)
{
    return c >= first && c <= last;
}

bool isControl (juce::juce_wchar c)
{
    return c < 0x20 || isWithin (c, 0x7F, 0x9F) || isWithin (c, 0x2028, 0x2029);
}

/** Marks that only set the direction of text. */
bool isDirection (juce::juce_wchar c)
{
    return isWithin (c, 0x200E, 0x200F) || isWithin (c, 0x202A, 0x202E) || isWithin (c, 0x2066, 0x2069) || c == 0xFEFF;
}

Letters getLettersOfOneLine (const juce::String& name)
{
    Letters letters;

    for (auto c = name.getCharPointer(); ! c.isEmpty(); ++c)
        if (! isDirection (*c))
            letters.push_back (isControl (*c) ? juce::juce_wchar { ' ' } : *c);

    return letters;
}

juce::String toString (const Letters& letters)
{
    // A string of UTF-32 is taken up to its length or its end.
    return { juce::CharPointer_UTF32 (letters.data()), letters.size() };
}

bool isRightToLeft (juce::juce_wchar c)
{
    return isWithin (c, 0x590, 0x8FF) || isWithin (c, 0xFB1D, 0xFDFF) || isWithin (c, 0xFE70, 0xFEFC)
           || isWithin (c, 0x10800, 0x10FFF) || isWithin (c, 0x1E800, 0x1EFFF);
}

#if JUCE_MAJOR_VERSION < 8

//==============================================================================
bool isDigit (juce::juce_wchar c)
{
    return isWithin (c, '0', '9') || isWithin (c, 0x660, 0x669) || isWithin (c, 0x6F0, 0x6F9);
}

/** Blanks and punctuation, which run as the letters around them do. */
bool isNeutral (juce::juce_wchar c)
{
    const bool isAsciiLetter = isWithin (c | 0x20, 'a', 'z');
    return (c < 0xC0 && ! isAsciiLetter) || isWithin (c, 0x2000, 0x2BFF) || isWithin (c, 0x3000, 0x3020);
}

/** Points and vowel signs, which stand above or below the letter before them. */
bool isMark (juce::juce_wchar c)
{
    return isWithin (c, 0x591, 0x5BD) || c == 0x5BF || isWithin (c, 0x5C1, 0x5C2) || isWithin (c, 0x64B, 0x65F)
           || c == 0x670;
}

//==============================================================================
/** The forms of an Arabic letter: how many there are, which says where it can join others, and the first of them. */
struct Forms
{
    enum Count
    {
        none = 0,
        alone = 1,
        joinsBefore = 2, /**< Isolated, final. */
        joinsBoth = 4    /**< And initial, medial. */
    };

    int count = none;
    juce::juce_wchar first = 0;
};

/** The letters of the two ranges follow each other among the forms as well. */
Forms getForms (juce::juce_wchar letter)
{
    static constexpr juce::juce_wchar ranges[][2] { { 0x621, 0x63A }, { 0x641, 0x64A } };
    static constexpr char counts[] = "12222424244444222244444444"
                                     "4444444224";

    auto first = juce::juce_wchar { 0xFE80 };
    const auto* count = counts;

    for (const auto& [begin, end] : ranges)
        for (auto c = begin; c <= end; ++c, ++count)
        {
            if (c == letter)
                return { *count - '0', first };

            first += static_cast<juce::juce_wchar> (*count - '0');
        }

    switch (letter) // of Persian and Urdu
    {
        case 0x67E:
            return { Forms::joinsBoth, 0xFB56 };
        case 0x686:
            return { Forms::joinsBoth, 0xFB7A };
        case 0x698:
            return { Forms::joinsBefore, 0xFB8A };
        case 0x6A9:
            return { Forms::joinsBoth, 0xFB8E };
        case 0x6AF:
            return { Forms::joinsBoth, 0xFB92 };
        case 0x6CC:
            return { Forms::joinsBoth, 0xFBFC };
        case 0x640: // a line that only joins
            return { Forms::joinsBoth, 0 };
        default:
            return {};
    }
}

/** Replaces Arabic letters by the forms that they have beside their neighbours. */
Letters join (const Letters& text)
{
    constexpr juce::juce_wchar lam = 0x644, lamAlef = 0xFEF5;
    constexpr std::array<juce::juce_wchar, 4> alefs { 0x622, 0x623, 0x625, 0x627 }; // in the order of their ligatures

    Letters joined;
    bool reaches = false; // whether the letter before joins the next one

    for (auto letter = text.begin(); letter != text.end(); ++letter)
    {
        const auto [count, first] = getForms (*letter);

        if (isMark (*letter) || first == 0)
        {
            joined.push_back (*letter);
            reaches = isMark (*letter) ? reaches : count == Forms::joinsBoth;
            continue;
        }

        auto next = std::find_if_not (letter + 1, text.end(), isMark);
        const int isJoined = reaches && count > Forms::alone ? 1 : 0;

        if (next == letter + 1 && next != text.end() && *letter == lam)
        {
            if (const auto alef = std::find (alefs.begin(), alefs.end(), *next); alef != alefs.end())
            {
                joined.push_back (lamAlef + static_cast<juce::juce_wchar> (2 * (alef - alefs.begin()) + isJoined));
                reaches = false;
                letter = next;
                continue;
            }
        }

        reaches = count == Forms::joinsBoth && next != text.end() && getForms (*next).count > Forms::alone;
        joined.push_back (first + static_cast<juce::juce_wchar> (isJoined + (reaches ? 2 : 0)));
    }

    return joined;
}

/** The other bracket of a pair; other characters are returned as they are. */
juce::juce_wchar getCounterpart (juce::juce_wchar c)
{
    static const juce::String brackets ("()[]{}<>");
    const int index = brackets.indexOfChar (c);
    return index < 0 ? c : brackets[index ^ 1];
}

/** Reverses what runs from right to left, but not the numbers in it; marks still follow their letter. */
void turnAround (Letters::iterator begin, Letters::iterator end)
{
    std::reverse (begin, end);

    for (auto letter = begin; letter != end; ++letter)
    {
        auto last = letter;

        if (isMark (*letter))
            last = std::find_if_not (letter, end - 1, isMark);

        while (
            isDigit (*letter) && last + 1 != end
            && (isDigit (last[1]) || (isNeutral (last[1]) && last[1] != ' ' && last + 2 != end && isDigit (last[2]))))
            ++last;

        *letter = getCounterpart (*letter);
        std::reverse (letter, last + 1);
        letter = last;
    }
}

void putInVisualOrder (Letters& text)
{
    for (auto begin = text.begin(); (begin = std::find_if (begin, text.end(), isRightToLeft)) != text.end();)
    {
        auto end = begin;

        for (auto next = begin; next != text.end() && (isRightToLeft (*next) || isNeutral (*next) || isDigit (*next));
             ++next)
            if (isRightToLeft (*next) || isDigit (*next))
                end = next + 1;

        // It keeps both brackets of a pair.
        while (end != text.end() && getCounterpart (*end) < *end
               && std::find (begin, end, getCounterpart (*end)) != end)
            ++end;

        turnAround (begin, end);
        begin = end;
    }
}
#endif
} // namespace

juce::String DisplayText::fromName (const juce::String& name)
{
    auto letters = getLettersOfOneLine (name);

#if JUCE_MAJOR_VERSION < 8
    letters = join (letters);
    putInVisualOrder (letters);
#else
    // Or what follows the name would run on in its direction.
    constexpr juce::juce_wchar leftToRightMark = 0x200E;

    if (std::ranges::any_of (letters, isRightToLeft))
    {
        letters.insert (letters.begin(), leftToRightMark);
        letters.push_back (leftToRightMark);
    }
#endif

    return toString (letters);
}
