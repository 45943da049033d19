// A FireWire device that is not there: exports an Audio/Device to the running PipeWire until it is killed, and prints
// PipeWire's number of it. Nodes that are to belong to it carry that number as their device.id.
//
// With an argument it exports a source as well, without a port, whose clock drives the nodes of its group: 960 frames
// at 48 kHz, half a period from the hardware, 100 millionths too fast. Each byte on standard input is an xrun.

#include <pipewire/impl.h>
#include <pipewire/pipewire.h>
#include <spa/monitor/device.h>
#include <spa/node/io.h>
#include <spa/node/node.h>
#include <spa/utils/hook.h>

#include <array>
#include <cstdint>
#include <cstdio>
#include <ctime>
#include <string>
#include <unistd.h>

#ifdef __clang__
// Calls to PipeWire's objects are macros that are expressions in the GNU manner.
#pragma clang diagnostic ignored "-Wgnu-statement-expression"
#endif

namespace
{
template <std::size_t size>
constexpr spa_dict makeDictionary (const std::array<spa_dict_item, size>& items)
{
    return { 0, size, items.data() };
}

constexpr std::array<spa_dict_item, 4> deviceItems { { { PW_KEY_MEDIA_CLASS, "Audio/Device" },
                                                       { PW_KEY_DEVICE_BUS, "firewire" },
                                                       { PW_KEY_DEVICE_NAME, "Fake" },
                                                       { PW_KEY_DEVICE_DESCRIPTION, "Fake FireWire" } } };
constexpr auto deviceProperties = makeDictionary (deviceItems);

int addDeviceListener (void* listeners, spa_hook* listener, const spa_device_events* events, void* data)
{
    const spa_device_info info {
        SPA_VERSION_DEVICE_INFO, SPA_DEVICE_CHANGE_MASK_PROPS, 0, &deviceProperties, nullptr, 0
    };
    spa_hook_list_append (static_cast<spa_hook_list*> (listeners), listener, events, data);
    events->info (data, &info);
    return 0;
}

constexpr spa_device_methods deviceMethods { SPA_VERSION_DEVICE_METHODS, addDeviceListener, nullptr, nullptr, nullptr };

//==============================================================================
constexpr long duration = 960, nanosecondsPerCycle = 20'000'000;

/** The source. Its cycles run on PipeWire's data loop. */
struct Source
{
    spa_hook_list listeners {};
    const spa_node_callbacks* callbacks = nullptr;
    void* callbackData = nullptr;
    spa_io_clock* clock = nullptr;
    pw_loop* loop = nullptr;
    spa_source* timer = nullptr;
};

void beginCycle (void* data, std::uint64_t)
{
    auto& source = *static_cast<Source*> (data);
    timespec now {};
    clock_gettime (CLOCK_MONOTONIC, &now);

    if (auto* clock = source.clock)
    {
        clock->nsec = static_cast<std::uint64_t> (SPA_TIMESPEC_TO_NSEC (&now));
        clock->next_nsec = clock->nsec + nanosecondsPerCycle;
        clock->rate = { 1, 48000 };
        clock->position += duration;
        clock->duration = duration;
        clock->delay = duration / 2;
        clock->rate_diff = 1.0001;
    }

    source.callbacks->ready (source.callbackData, SPA_STATUS_HAVE_DATA);
}

int setTimer (spa_loop*, bool, std::uint32_t, const void* nanoseconds, std::size_t, void* data)
{
    auto& source = *static_cast<Source*> (data);

    if (source.timer == nullptr)
        source.timer = pw_loop_add_timer (source.loop, beginCycle, data);

    timespec interval { 0, *static_cast<const long*> (nanoseconds) };
    return pw_loop_update_timer (source.loop, source.timer, &interval, &interval, false);
}

int tellXrun (spa_loop*, bool, std::uint32_t, const void*, std::size_t, void* data)
{
    const auto& source = *static_cast<Source*> (data);
    return source.callbacks->xrun (source.callbackData, 0, 0, nullptr);
}

void readInput (void* data, int descriptor, std::uint32_t)
{
    if (char byte = 0; read (descriptor, &byte, 1) == 1)
        pw_loop_invoke (static_cast<Source*> (data)->loop, tellXrun, 0, nullptr, 0, true, data);
}

spa_node_methods makeSourceMethods()
{
    spa_node_methods methods {};
    methods.version = SPA_VERSION_NODE_METHODS;

    methods.add_listener = [] (void* object, spa_hook* listener, const spa_node_events* events, void* data)
    {
        spa_node_info info {};
        info.change_mask = SPA_NODE_CHANGE_MASK_FLAGS;
        info.flags = SPA_NODE_FLAG_RT;
        spa_hook_list_append (&static_cast<Source*> (object)->listeners, listener, events, data);
        events->info (data, &info);
        return 0;
    };

    methods.set_callbacks = [] (void* object, const spa_node_callbacks* callbacks, void* data)
    {
        static_cast<Source*> (object)->callbacks = callbacks;
        static_cast<Source*> (object)->callbackData = data;
        return 0;
    };

    methods.set_io = [] (void* object, std::uint32_t id, void* data, std::size_t)
    {
        if (id == SPA_IO_Clock)
            static_cast<Source*> (object)->clock = static_cast<spa_io_clock*> (data);

        return 0;
    };

    methods.send_command = [] (void* object, const spa_command* command)
    {
        const auto nanoseconds = SPA_NODE_COMMAND_ID (command) == SPA_NODE_COMMAND_Start ? nanosecondsPerCycle : 0;
        auto* loop = static_cast<Source*> (object)->loop;
        return pw_loop_invoke (loop, setTimer, 0, &nanoseconds, sizeof (nanoseconds), true, object);
    };

    methods.set_param = [] (void*, std::uint32_t, std::uint32_t, const spa_pod*) { return 0; };
    methods.process = [] (void*) { return SPA_STATUS_HAVE_DATA; };
    return methods;
}

//==============================================================================
struct Session
{
    pw_core* core = nullptr;
    bool hasSource = false;
    Source source;
    spa_node_methods sourceMethods = makeSourceMethods();
    spa_node node { { SPA_TYPE_INTERFACE_Node, SPA_VERSION_NODE, { &sourceMethods, &source } } };
};

void deviceIsThere (void* data, std::uint32_t id)
{
    auto& session = *static_cast<Session*> (data);
    std::printf ("%u\n", id);
    std::fflush (stdout);

    if (! session.hasSource)
        return;

    const auto number = std::to_string (id);
    const std::array<spa_dict_item, 6> items { { { PW_KEY_MEDIA_CLASS, "Audio/Source/Virtual" },
                                                 { PW_KEY_NODE_NAME, "Fake-Clock" },
                                                 { PW_KEY_NODE_GROUP, "fake" },
                                                 { PW_KEY_NODE_DRIVER, "true" },
                                                 { PW_KEY_PRIORITY_DRIVER, "4000" },
                                                 { PW_KEY_DEVICE_ID, number.c_str() } } };
    const auto properties = makeDictionary (items);
    pw_core_export (session.core, SPA_TYPE_INTERFACE_Node, &properties, &session.node, 0);
}

} // namespace

int main (int numArguments, char** arguments)
{
    pw_init (&numArguments, &arguments);
    auto* loop = pw_main_loop_new (nullptr);
    auto* context = pw_context_new (pw_main_loop_get_loop (loop), nullptr, 0);

    for (const auto* module : { "libpipewire-module-client-device", "libpipewire-module-client-node" })
        pw_context_load_module (context, module, nullptr, nullptr);

    Session session;
    session.hasSource = numArguments > 1;
    session.core = pw_context_connect (context, nullptr, 0);
    spa_hook_list_init (&session.source.listeners);
    session.source.loop = pw_data_loop_get_loop (pw_context_get_data_loop (context));

    if (session.core == nullptr)
        return 1;

    spa_hook_list deviceListeners;
    spa_hook_list_init (&deviceListeners);
    spa_device device { { SPA_TYPE_INTERFACE_Device, SPA_VERSION_DEVICE, { &deviceMethods, &deviceListeners } } };
    auto* proxy = pw_core_export (session.core, SPA_TYPE_INTERFACE_Device, &deviceProperties, &device, 0);

    pw_proxy_events events {};
    events.version = PW_VERSION_PROXY_EVENTS;
    events.bound = deviceIsThere;
    spa_hook hook {};
    pw_proxy_add_listener (proxy, &hook, &events, &session);

    if (session.hasSource)
        pw_loop_add_io (pw_main_loop_get_loop (loop), STDIN_FILENO, SPA_IO_IN, false, readInput, &session.source);

    return pw_main_loop_run (loop);
}
