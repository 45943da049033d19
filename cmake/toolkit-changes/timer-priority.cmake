# The timers' thread has no more priority than others: on Windows it would be above the host's and the driver's helpers.

set (file juce_events/timers/juce_Timer.cpp)

quendel_change_toolkit ("Priority::high)" "Priority::normal)")
