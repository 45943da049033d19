#pragma once

#include "drivers/windows/Answer.h"

/** Carries out one order, and answers it with "ok", "ok ..." or "error: ...". After an error nothing has changed. */
void executeOrder (const char* line, Answer& answer);
