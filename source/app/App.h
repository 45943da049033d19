#pragma once

#include "app/AppListener.h"
#include "app/AppWindow.h"
#include "app/Appearance.h"
#include "device/DeviceList.h"
#include <memory>

/** The program: one instance at a time, its devices and its window. Message thread. */
class App : public juce::JUCEApplication
{
public:
    void initialise (const juce::String& commandLine) override;
    void shutdown() override;
    const juce::String getApplicationName() override { return "Quendel"; }
    const juce::String getApplicationVersion() override;
    void systemRequestedQuit() override { quit(); }

private:
    /** Ends with exit code 1 and the reason on standard error. */
    void fail (const char* reason);

    std::unique_ptr<Appearance> appearance;
    std::unique_ptr<AppWindow> mainWindow;
    std::unique_ptr<DeviceList> deviceList;
    std::unique_ptr<juce::InterProcessLock> instanceLock;
    std::unique_ptr<AppListener> appListener;
};
