// A FireWire device that is not there: exports an Audio/Device to the running PipeWire until it is killed, and prints
// PipeWire's number of it. Nodes that are to belong to it carry that number as their device.id.

#include <pipewire/impl.h>
#include <pipewire/pipewire.h>
#include <spa/monitor/device.h>
#include <spa/utils/hook.h>

#include <cstdint>
#include <cstdio>
#include <iterator>

namespace
{
constexpr spa_dict_item items[] { { PW_KEY_MEDIA_CLASS, "Audio/Device" },
                                  { PW_KEY_DEVICE_BUS, "firewire" },
                                  { PW_KEY_DEVICE_NAME, "Fake" },
                                  { PW_KEY_DEVICE_DESCRIPTION, "Fake FireWire" } };
constexpr spa_dict properties { 0, std::size (items), items };

/** A device of properties alone. */
struct Device
{
    spa_device device {};
    spa_hook_list listeners {};
};

int addListener (void* object, spa_hook* listener, const spa_device_events* events, void* data)
{
    const spa_device_info info { SPA_VERSION_DEVICE_INFO, SPA_DEVICE_CHANGE_MASK_PROPS, 0, &properties, nullptr, 0 };
    spa_hook_list_append (&static_cast<Device*> (object)->listeners, listener, events, data);
    events->info (data, &info);
    return 0;
}

constexpr spa_device_methods methods { SPA_VERSION_DEVICE_METHODS, addListener, nullptr, nullptr, nullptr };

void printId (void*, std::uint32_t id)
{
    std::printf ("%u\n", id);
    std::fflush (stdout);
}

} // namespace

int main (int numArguments, char** arguments)
{
    pw_init (&numArguments, &arguments);
    auto* loop = pw_main_loop_new (nullptr);
    auto* context = pw_context_new (pw_main_loop_get_loop (loop), nullptr, 0);
    pw_context_load_module (context, "libpipewire-module-client-device", nullptr, nullptr);
    auto* core = pw_context_connect (context, nullptr, 0);

    Device device;
    spa_hook_list_init (&device.listeners);
    device.device.iface = { SPA_TYPE_INTERFACE_Device, SPA_VERSION_DEVICE, { &methods, &device } };
    auto* proxy =
        core == nullptr ? nullptr : pw_core_export (core, SPA_TYPE_INTERFACE_Device, &properties, &device.device, 0);

    if (proxy == nullptr)
        return 1;

    pw_proxy_events events {};
    events.version = PW_VERSION_PROXY_EVENTS;
    events.bound = printId;
    spa_hook hook {};
    pw_proxy_add_listener (proxy, &hook, &events, nullptr);
    return pw_main_loop_run (loop);
}
