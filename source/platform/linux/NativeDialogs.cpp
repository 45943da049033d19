#include "platform/NativeDialogs.h"

#include <juce_gui_basics/juce_gui_basics.h>

namespace NativeDialogs
{

static juce::TextEditor* findEditor (const juce::Component& parent)
{
    for (auto* child : parent.getChildren())
    {
        auto* editor = dynamic_cast<juce::TextEditor*> (child);

        if (editor == nullptr)
            editor = findEditor (*child);

        if (editor != nullptr)
            return editor;
    }

    return nullptr;
}

/** The dialog as it comes keeps the keyboard for itself, and not even Tab takes it further. The name keeps Escape. */
static void giveKeyboardToName()
{
    auto* dialog = dynamic_cast<juce::FileChooserDialogBox*> (juce::Component::getCurrentlyModalComponent());

    if (dialog == nullptr)
        return;

    if (auto* name = findEditor (*dialog))
    {
        dialog->setWantsKeyboardFocus (false);
        name->setExplicitFocusOrder (1);
        name->onEscapeKey = [dialog] { dialog->exitModalState (0); };
        name->setSelectAllWhenFocused (false);
        name->grabKeyboardFocus();
        name->setHighlightedRegion ({ 0, juce::jmax (0, name->getText().lastIndexOfChar ('.')) });
    }
}

std::unique_ptr<Watch> attend()
{
    // Comes first in the dialog's loop, before it has the keyboard.
    juce::MessageManager::callAsync (giveKeyboardToName);
    return nullptr;
}

} // namespace NativeDialogs
