#include "app/App.h"

START_JUCE_APPLICATION (App)
