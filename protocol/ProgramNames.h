#pragma once

/** How others find the program on Windows. */
namespace ProgramNames
{

/** Class and title of the message-only window that device changes are sent to. */
inline constexpr char notificationWindow[] = "notification msg window";

/** The registry key of the program's settings, below HKEY_CURRENT_USER. */
inline constexpr char settingsKey[] = "Software\\Vendrel";

} // namespace ProgramNames
