#include "events/HelpKey.h"

#include "platform/NativeDialogs.h"

HelpKey::HelpKey (juce::Component& windowWithKey) : window (windowWithKey)
{
    window.addKeyListener (this);
}

HelpKey::~HelpKey()
{
    window.removeKeyListener (this);
}

bool HelpKey::keyPressed (const juce::KeyPress& key, juce::Component*)
{
    if (key != juce::KeyPress::F1Key)
        return false;

    triggerAsyncUpdate();
    return true;
}

/** Called later, not while the key is handled: the box runs its own message loop. */
void HelpKey::handleAsyncUpdate()
{
    const juce::Component::SafePointer<juce::Component> focused (juce::Component::getCurrentlyFocusedComponent());
    auto* program = juce::JUCEApplication::getInstance();
    const auto documents = juce::File::getSpecialLocation (juce::File::userDocumentsDirectory).getFullPathName();
    const auto name = program->getApplicationName();

    juce::String text;
    text << "Version " << program->getApplicationVersion()
         << "\n\nIn the main window\n"
            "Return: reset the figures\n"
            "Tab, then Space or Return: a button\n"
            "Ctrl and C: copy what Save would add\n"
            "Escape: quit\n"
            "\nIn the event log\n"
            "Ctrl and Page Down, Ctrl and Page Up: another tab\n"
            "1 to 6: sort by that column\n"
            "Ctrl and C: copy the selected row\n"
            "Tab, then Space or Return: save the table on show\n"
            "Escape: close\n"
            "\nReports\n"
            "Save adds to \"Quendel report.txt\" in\n"
         << documents << "\nSave report asks for a file, and proposes one there.";

    const auto watch = NativeDialogs::attend();
    juce::NativeMessageBox::showMessageBox (juce::MessageBoxIconType::NoIcon, name, text);

    // Without a window manager, nobody else returns the keyboard.
    if (focused != nullptr)
        focused->grabKeyboardFocus();
}
