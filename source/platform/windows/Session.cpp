#include "platform/Session.h"

namespace Session
{

void quitOnSignals() {}

bool namesDisplay()
{
    return true;
}

} // namespace Session
