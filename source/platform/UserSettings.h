#pragma once

#include <juce_core/juce_core.h>

/** The per-user store of the program's few settings, as text: the registry on Windows, a settings file elsewhere.

    A store that cannot be read yields the default; one that cannot be written keeps what it had. Message thread.
*/
namespace UserSettings
{

/** @param key   registry key of the program's settings; elsewhere its last part names the settings folder */
juce::String getValue (const juce::String& key, const juce::String& name, const juce::String& defaultValue);

void setValue (const juce::String& key, const juce::String& name, const juce::String& value);

} // namespace UserSettings
