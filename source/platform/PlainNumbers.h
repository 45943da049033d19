#pragma once

#include <memory>

/** While it lives, numbers that the calling thread formats have a decimal point, whatever the user's locale.

    The toolkit switches the whole process to the user's locale while it looks up the text of a key press, in which a
    worker thread would otherwise write "1,500".
*/
class PlainNumbers
{
public:
    PlainNumbers();
    ~PlainNumbers();

private:
    struct Locale;
    std::unique_ptr<Locale> locale;
};
