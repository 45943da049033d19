#pragma once

#include <juce_gui_basics/juce_gui_basics.h>

/** F1 in a window, which tells about the program: its version, its keys, and where the reports go. Here, as this is the
    lowest folder with a window. Message thread.
*/
class HelpKey : private juce::KeyListener, private juce::AsyncUpdater
{
public:
    /** @param windowWithKey  not owned, outlives the key */
    explicit HelpKey (juce::Component& windowWithKey);
    ~HelpKey() override;

private:
    bool keyPressed (const juce::KeyPress&, juce::Component*) override;
    void handleAsyncUpdate() override;

    juce::Component& window;

    JUCE_DECLARE_NON_COPYABLE_WITH_LEAK_DETECTOR (HelpKey)
};
