# Whatever wakes the message thread, the display's events are looked at as well, after everything else: what is called
# may talk to the display, and the events that X11's library reads meanwhile wait in its queue, where waiting for the
# descriptor never finds them. As it comes, the display's timer talks to the display many times a second and so hides
# that a key or a click can wait for the next event. All callbacks return at once when there is nothing for them, and the
# display's descriptor is the youngest. Looking sends what was drawn, too.

set (file juce_events/native/juce_linux_Messaging.cpp juce_events/native/juce_Messaging_linux.cpp)

quendel_change_toolkit ([[
        for (auto& pfd : pfds)
        {
            if (std::exchange (pfd.revents, 0) != 0)
            {
                const auto iter = callbacks.find (pfd.fd);

                if (iter != callbacks.end())
                    functions.emplace_back (iter->second);
            }
        }
]] [[
        for (const auto& callback : callbacks)
            functions.emplace_back (callback.second);
]])
