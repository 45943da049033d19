#pragma once

#include <string>
#include <string_view>

namespace Simulation
{

class Simulator;

/** Carries out one order, a line without its end.

    @returns one line to answer with: "ok", "ok ..." or "error: ..."; after an error nothing has changed
*/
std::string executeOrder (Simulator& simulator, std::string_view line);

/** One line of text for each order, with line ends. */
std::string getOrderHelp();

} // namespace Simulation
