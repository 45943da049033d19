#include "app/App.h"

#include "platform/InstanceLock.h"
#include "platform/NativeDialogs.h"
#include "platform/Session.h"

#include <iostream>

void App::initialise (const juce::String&)
{
    instanceLock = std::make_unique<juce::InterProcessLock> (InstanceLock::getNameForUser ("Quendel lock"));

    if (! instanceLock->enter (0))
    {
        quit();
        return;
    }

    appearance = std::make_unique<Appearance>();

    const auto* display =
        Session::namesDisplay() ? juce::Desktop::getInstance().getDisplays().getPrimaryDisplay() : nullptr;

    if (display == nullptr)
    {
        fail ("there is no display to open a window on");
        return;
    }

    if (! TextLook::canDraw())
    {
        fail ("there is no font to write with");
        return;
    }

    Session::quitOnSignals();

    const int defaultX = display->userArea.getWidth() / 20;
    const int defaultY = display->userArea.getHeight() / 20;

    appListener = std::make_unique<AppListener>();
    deviceList = std::make_unique<DeviceList>();
    deviceList->setListener (appListener.get());

    if (deviceList->getNumDevices() != 0)
    {
        mainWindow = std::make_unique<AppWindow> (deviceList.get(), defaultX, defaultY);
        mainWindow->setVisible (true);
        mainWindow->toFront (true);
        return;
    }

    const auto watch = NativeDialogs::attend();
    juce::NativeMessageBox::showMessageBox (juce::MessageBoxIconType::NoIcon,
                                            "Quendel",
                                            "\nNo compatible hardware detected.");
    quit();
}

void App::fail (const char* reason)
{
    std::cerr << "Quendel: " << reason << std::endl;
    setApplicationReturnValue (1);
    quit();
}

const juce::String App::getApplicationVersion()
{
    return QUENDEL_VERSION;
}

void App::shutdown()
{
    mainWindow.reset();

    // The listener goes first, so it must not be posted to any more.
    if (deviceList != nullptr)
        deviceList->setListener (nullptr);

    appListener.reset();
    deviceList.reset();
    appearance.reset();
    instanceLock.reset();
}
