#include "platform/UserSettings.h"

#include <juce_data_structures/juce_data_structures.h>

namespace UserSettings
{

/** ~/.config/<vendor>/Quendel.settings */
static juce::PropertiesFile::Options describeFile (const juce::String& key)
{
    juce::PropertiesFile::Options options;
    options.applicationName = "Quendel";
    options.folderName = ".config/" + key.fromLastOccurrenceOf ("\\", false, false);
    options.filenameSuffix = "settings";
    options.millisecondsBeforeSaving = -1; // only when told to
    options.storageFormat = juce::PropertiesFile::storeAsXML;
    return options;
}

juce::String getValue (const juce::String& key, const juce::String& name, const juce::String& defaultValue)
{
    return juce::PropertiesFile (describeFile (key)).getValue (name, defaultValue);
}

void setValue (const juce::String& key, const juce::String& name, const juce::String& value)
{
    juce::PropertiesFile file (describeFile (key));
    file.setValue (name, value);
    file.save();
}

} // namespace UserSettings
