#include "platform/UserSettings.h"

namespace UserSettings
{

juce::String getValue (const juce::String& key, const juce::String& name, const juce::String& defaultValue)
{
    return juce::WindowsRegistry::getValue (key + "\\" + name, defaultValue);
}

void setValue (const juce::String& key, const juce::String& name, const juce::String& value)
{
    juce::WindowsRegistry::setValue (key + "\\" + name, value);
}

} // namespace UserSettings
