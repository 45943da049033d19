#pragma once

#include <juce_gui_basics/juce_gui_basics.h>
#include <memory>

/** Keeps the toolkit running, so that timers, messages and painting work in every test. */
inline std::unique_ptr<juce::ScopedJuceInitialiser_GUI> toolkit;

/** Starts the toolkit anew: after a quit it delivers nothing. */
inline void restartToolkit()
{
    // Without a window manager the X server reports errors, which the toolkit ignores only in an application.
    juce::JUCEApplicationBase::createInstance = []() -> juce::JUCEApplicationBase* { return nullptr; };

    toolkit.reset();
    toolkit = std::make_unique<juce::ScopedJuceInitialiser_GUI>();
}
