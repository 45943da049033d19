#include "platform/SystemText.h"

#include "platform/Win32.h"

namespace SystemText
{

juce::String decode (const std::string& bytes)
{
    constexpr UINT latin1 = 28591;
    const auto size = static_cast<int> (bytes.size());

    for (const auto codePage : { UINT { CP_ACP }, latin1 })
    {
        const auto convert = [&] (std::wstring& wide)
        {
            return MultiByteToWideChar (codePage,
                                        MB_ERR_INVALID_CHARS,
                                        bytes.data(),
                                        size,
                                        wide.data(),
                                        static_cast<int> (wide.size()));
        };

        std::wstring wide;
        wide.resize (static_cast<std::size_t> (convert (wide)));

        if (convert (wide) > 0)
            return { wide.data(), wide.size() };
    }

    return {};
}

} // namespace SystemText
