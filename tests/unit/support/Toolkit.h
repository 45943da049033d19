#pragma once

#include <juce_gui_basics/juce_gui_basics.h>
#include <memory>

/** Keeps the toolkit up for the whole run, so that timers, messages and painting work in every test. */
inline std::unique_ptr<juce::ScopedJuceInitialiser_GUI> toolkit;

/** Makes the toolkit anew; after a quit it would deliver nothing any more. */
inline void restartToolkit()
{
    // An X server without a window manager has errors to report that an application, and no other, ignores.
    juce::JUCEApplicationBase::createInstance = []() -> juce::JUCEApplicationBase* { return nullptr; };

    toolkit.reset();
    toolkit = std::make_unique<juce::ScopedJuceInitialiser_GUI>();
}
