# A window that is opened while another one waits for it stands before that one, whatever is clicked. As it comes, the
# toolkit does not tell the window manager which belongs to which, and in bringing the windows to the front in their
# order it puts each of them before the one that it should be behind. It also gives the keyboard to a window that is
# clicked while it has to wait, or that a window manager gives it to, and sometimes leaves it there.

set (file juce_gui_basics/native/x11/juce_linux_XWindowSystem.cpp juce_gui_basics/native/juce_XWindowSystem_linux.cpp)

quendel_change_toolkit ([[
    // Set window manager protocols
    xchangeProperty (windowH, atoms.protocols, XA_ATOM, 32, atoms.protocolList, 2);
]] [[
    // Set window manager protocols
    xchangeProperty (windowH, atoms.protocols, XA_ATOM, 32, atoms.protocolList, 2);

    auto* blocked = Component::getCurrentlyModalComponent();

    if (blocked == nullptr)
        blocked = Desktop::getInstance().getComponent (0);

    if (auto* blockedPeer = blocked != nullptr ? blocked->getPeer() : nullptr)
    {
        auto blockedWindow = (::Window) blockedPeer->getNativeHandle();

        if (blockedWindow != 0)
            xchangeProperty (windowH, XA_WM_TRANSIENT_FOR, XA_WINDOW, 32, &blockedWindow, 1);
    }
]])

quendel_change_toolkit ([[
    Window newStack[] = { topLevelA, topLevelB };
]] [[
    Window newStack[] = { topLevelB, topLevelA };
]])

quendel_change_toolkit ([[
    peer->toFront (true);
    peer->handleMouseEvent]] [[
    if (! peer->getComponent().isCurrentlyBlockedByAnotherModalComponent())
        peer->toFront (true);

    peer->handleMouseEvent]])

quendel_change_toolkit ([[
        peer->focused = true;
        peer->handleFocusGain();
]] [[
        peer->focused = true;

        if (peer->getComponent().isCurrentlyBlockedByAnotherModalComponent())
            ModalComponentManager::getInstance()->bringModalComponentsToFront();
        else
            peer->handleFocusGain();
]])
