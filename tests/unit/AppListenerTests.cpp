#include "app/AppListener.h"
#include "device/DeviceList.h"
#include "tests/unit/support/TestDriver.h"
#include "tests/unit/support/Toolkit.h"

#include <gtest/gtest.h>

/** Before there is a view, a device that comes is no matter and one that goes ends the program. */
TEST (AppListenerTests, onlyARemovalQuits)
{
    const auto isQuitting = [] { return juce::MessageManager::getInstance()->hasStopMessageBeenSent(); };

    {
        const TestMachine machine;
        TestDriver driver (machine, { .present = false });
        AppListener listener;
        DeviceList devices (0, nullptr, nullptr, nullptr);
        devices.setListener (&listener);

        driver.plugIn();
        ASSERT_TRUE (runMessagesUntil ([&] { return devices.getNumDevices() == 1; }));
        listener.handleMessage (DeviceChangeMessage (DeviceArrivedMessage, nullptr));
        listener.handleMessage (juce::Message());
        EXPECT_FALSE (isQuitting());

        driver.kill();
        EXPECT_TRUE (runMessagesUntil (isQuitting));
        devices.setListener (nullptr);
    }

    restartToolkit();
}
