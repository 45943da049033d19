#include "platform/NativeDialogs.h"

namespace NativeDialogs
{

std::unique_ptr<Watch> closeOnQuit()
{
    return nullptr;
}

} // namespace NativeDialogs
