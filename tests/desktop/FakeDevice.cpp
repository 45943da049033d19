// A FireWire device that is not there: exports an Audio/Device to the running PipeWire until it is killed, and prints
// the id that PipeWire gives it. A node belongs to it by having that id as its device.id.
//
// With an argument it also exports a source without a port, whose clock drives the nodes of its group: 960 frames at
// 48 kHz, half a period from the hardware, 100 millionths too fast, with an xrun every second.

#include <pipewire/impl.h>
#include <pipewire/pipewire.h>
#include <spa/monitor/device.h>
#include <spa/node/io.h>
#include <spa/node/node.h>
#include <spa/utils/hook.h>

#include <cstdint>
#include <cstdio>
#include <ctime>
#include <iterator>
#include <string>

#ifdef __clang__
// Calls to PipeWire's objects are macros made of GNU statement expressions.
#pragma clang diagnostic ignored "-Wgnu-statement-expression"
#endif

namespace
{
constexpr spa_dict_item deviceItems[] { { PW_KEY_MEDIA_CLASS, "Audio/Device" },
                                        { PW_KEY_DEVICE_BUS, "firewire" },
                                        { PW_KEY_DEVICE_NAME, "Fake" },
                                        { PW_KEY_DEVICE_DESCRIPTION, "Fake FireWire" } };
constexpr spa_dict deviceProperties { 0, std::size (deviceItems), deviceItems };

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

pw_loop* dataLoop = nullptr; // the source's cycles run on it
spa_source* timer = nullptr;
spa_io_clock* ioClock = nullptr;
spa_hook_list sourceListeners;
const spa_node_callbacks* callbacks = nullptr;
void* callbackData = nullptr;

void beginCycle (void*, std::uint64_t)
{
    timespec now {};
    clock_gettime (CLOCK_MONOTONIC, &now);

    if (ioClock != nullptr)
    {
        ioClock->nsec = static_cast<std::uint64_t> (SPA_TIMESPEC_TO_NSEC (&now));
        ioClock->next_nsec = ioClock->nsec + nanosecondsPerCycle;
        ioClock->rate = { 1, 48000 };
        ioClock->position += duration;
        ioClock->duration = duration;
        ioClock->delay = duration / 2;
        ioClock->rate_diff = 1.0001;

        if (ioClock->position % (50 * duration) == 0)
            callbacks->xrun (callbackData, 0, 0, nullptr);
    }

    callbacks->ready (callbackData, SPA_STATUS_HAVE_DATA);
}

int setTimer (spa_loop*, bool, std::uint32_t, const void* nanoseconds, std::size_t, void*)
{
    if (timer == nullptr)
        timer = pw_loop_add_timer (dataLoop, beginCycle, nullptr);

    timespec interval { 0, *static_cast<const long*> (nanoseconds) };
    return pw_loop_update_timer (dataLoop, timer, &interval, &interval, false);
}

int addSourceListener (void*, spa_hook* listener, const spa_node_events* events, void* data)
{
    spa_node_info info {};
    info.change_mask = SPA_NODE_CHANGE_MASK_FLAGS;
    info.flags = SPA_NODE_FLAG_RT;
    spa_hook_list_append (&sourceListeners, listener, events, data);
    events->info (data, &info);
    return 0;
}

int setCallbacks (void*, const spa_node_callbacks* newCallbacks, void* data)
{
    callbacks = newCallbacks;
    callbackData = data;
    return 0;
}

int setIo (void*, std::uint32_t id, void* data, std::size_t)
{
    ioClock = id == SPA_IO_Clock ? static_cast<spa_io_clock*> (data) : ioClock;
    return 0;
}

int sendCommand (void*, const spa_command* command)
{
    const auto nanoseconds = SPA_NODE_COMMAND_ID (command) == SPA_NODE_COMMAND_Start ? nanosecondsPerCycle : 0;
    return pw_loop_invoke (dataLoop, setTimer, 0, &nanoseconds, sizeof (nanoseconds), true, nullptr);
}

/** Exports the source of a device, once the device has its id. */
void exportSource (pw_core* core, std::uint32_t device)
{
    static spa_node_methods methods {};
    methods.version = SPA_VERSION_NODE_METHODS;
    methods.add_listener = addSourceListener;
    methods.set_callbacks = setCallbacks;
    methods.set_param = [] (void*, std::uint32_t, std::uint32_t, const spa_pod*) { return 0; };
    methods.set_io = setIo;
    methods.send_command = sendCommand;
    methods.process = [] (void*) { return SPA_STATUS_HAVE_DATA; };
    static spa_node source { { SPA_TYPE_INTERFACE_Node, SPA_VERSION_NODE, { &methods, nullptr } } };

    const auto number = std::to_string (device);
    const spa_dict_item items[] { { PW_KEY_MEDIA_CLASS, "Audio/Source/Virtual" },
                                  { PW_KEY_NODE_NAME, "Fake-Clock" },
                                  { PW_KEY_NODE_GROUP, "fake" },
                                  { PW_KEY_NODE_DRIVER, "true" },
                                  { PW_KEY_PRIORITY_DRIVER, "4000" },
                                  { PW_KEY_DEVICE_ID, number.c_str() } };
    const spa_dict properties { 0, std::size (items), items };
    spa_hook_list_init (&sourceListeners);
    pw_core_export (core, SPA_TYPE_INTERFACE_Node, &properties, &source, 0);
}

void printId (void* core, std::uint32_t id)
{
    std::printf ("%u\n", id);
    std::fflush (stdout);

    if (core != nullptr)
        exportSource (static_cast<pw_core*> (core), id);
}

} // namespace

int main (int numArguments, char** arguments)
{
    pw_init (&numArguments, &arguments);
    auto* loop = pw_main_loop_new (nullptr);
    auto* context = pw_context_new (pw_main_loop_get_loop (loop), nullptr, 0);
    dataLoop = pw_data_loop_get_loop (pw_context_get_data_loop (context));

    for (const auto* module : { "libpipewire-module-client-device", "libpipewire-module-client-node" })
        pw_context_load_module (context, module, nullptr, nullptr);

    auto* core = pw_context_connect (context, nullptr, 0);

    if (core == nullptr)
        return 1;

    spa_hook_list deviceListeners;
    spa_hook_list_init (&deviceListeners);
    spa_device device { { SPA_TYPE_INTERFACE_Device, SPA_VERSION_DEVICE, { &deviceMethods, &deviceListeners } } };
    auto* proxy = pw_core_export (core, SPA_TYPE_INTERFACE_Device, &deviceProperties, &device, 0);

    pw_proxy_events events {};
    events.version = PW_VERSION_PROXY_EVENTS;
    events.bound = printId;
    spa_hook hook {};
    pw_proxy_add_listener (proxy, &hook, &events, numArguments > 1 ? core : nullptr);
    return pw_main_loop_run (loop);
}
