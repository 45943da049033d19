# The timers' thread sleeps until a timer is due. As it comes it wakes ten times a second, too, to keep an approximate time
# up to date: tooltips and held buttons, which ask for it, are served by timers of their own.

set (file juce_events/timers/juce_Timer.cpp)

quendel_change_toolkit ("jlimit (1, 100, timeUntilFirstTimer)" "jmax (1, timeUntilFirstTimer)")
