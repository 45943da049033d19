# Tells the window when somebody starts to listen to the vertical blank, so that it need not watch it for nobody.

set (file juce_gui_basics/windows/juce_ComponentPeer.h)

quendel_change_toolkit ([[
    void addVBlankListener (VBlankListener* listenerToAdd)       { vBlankListeners.add (listenerToAdd); }
]] [[
    void addVBlankListener (VBlankListener* listenerToAdd)
    {
        vBlankListeners.add (listenerToAdd);
        vBlankListenerAdded();
    }
]])

quendel_change_toolkit ([[
    virtual void appStyleChanged() {}
]] [[
    virtual void appStyleChanged() {}

    /** Called after a VBlankListener was added, where somebody has to make vertical blanks for it. */
    virtual void vBlankListenerAdded() {}
]])
