#include "drivers/pipewire/Graph.h"

#include "drivers/pipewire/Sysfs.h"

#include <pipewire/pipewire.h>

// After it, on which they rely.
#include <pipewire/extensions/profiler.h>
#include <pipewire/impl-module.h>

#include <cerrno>
#include <cstdlib>
#include <string_view>
#include <utility>

#ifdef __clang__
// Calls to PipeWire's objects are macros that are expressions in the GNU manner.
#pragma clang diagnostic ignored "-Wgnu-statement-expression"
#endif

namespace PipeWire
{

namespace
{
/** An object of PipeWire's that we listen to. */
struct Proxy
{
    Proxy (GraphListener& newListener, std::uint32_t newId, pw_proxy* newProxy)
        : listener (newListener),
          id (newId),
          proxy (newProxy)
    {
    }

    ~Proxy()
    {
        spa_hook_remove (&hook);
        pw_proxy_destroy (proxy);
    }

    Proxy (const Proxy&) = delete;
    Proxy& operator= (const Proxy&) = delete;

    GraphListener& listener;
    const std::uint32_t id;
    pw_proxy* const proxy;
    spa_hook hook {};
    bool isKnown = false; // the listener has been told of it
    bool isRunning = false;
};

Properties readProperties (const spa_dict* dictionary)
{
    Properties properties;

    for (std::uint32_t i = 0; dictionary != nullptr && i < dictionary->n_items; ++i)
        if (const auto& item = dictionary->items[i]; item.key != nullptr && item.value != nullptr)
            properties[item.key] = item.value;

    return properties;
}

void describeDevice (void* data, const pw_device_info* info)
{
    auto& proxy = *static_cast<Proxy*> (data);

    if (! std::exchange (proxy.isKnown, true))
        proxy.listener.deviceAdded (proxy.id, readProperties (info->props));
}

void describeNode (void* data, const pw_node_info* info)
{
    auto& proxy = *static_cast<Proxy*> (data);

    if (! std::exchange (proxy.isKnown, true))
        proxy.listener.nodeAdded (proxy.id, readProperties (info->props));

    const auto wasRunning = std::exchange (proxy.isRunning, info->state == PW_NODE_STATE_RUNNING);

    if (wasRunning && ! proxy.isRunning)
        proxy.listener.nodeStopped (proxy.id);
}

void takeProfile (void* data, const spa_pod* pod)
{
    static_cast<Proxy*> (data)->listener.profiled (
        { reinterpret_cast<const std::uint8_t*> (pod), sizeof (spa_pod) + pod->size });
}

constexpr pw_device_events deviceEvents { .version = PW_VERSION_DEVICE_EVENTS,
                                          .info = describeDevice,
                                          .param = nullptr };
constexpr pw_node_events nodeEvents { .version = PW_VERSION_NODE_EVENTS, .info = describeNode, .param = nullptr };
constexpr pw_profiler_events profilerEvents { .version = PW_VERSION_PROFILER_EVENTS, .profile = takeProfile };

//==============================================================================
class Connection final : public Graph
{
public:
    explicit Connection (GraphListener& newListener) : listener (newListener)
    {
        pw_init (nullptr, nullptr);

        // A missing PipeWire or configuration is no error here.
        if (std::getenv ("PIPEWIRE_DEBUG") == nullptr)
            pw_log_set_level (SPA_LOG_LEVEL_NONE);

        loop = pw_loop_new (nullptr);

        if (loop == nullptr)
            return;

        pw_loop_enter (loop);

        // Without the usual configuration, which would make threads of ours real-time ones.
        context = pw_context_new (loop, pw_properties_new (PW_KEY_CONFIG_NAME, "null", nullptr), 0);

        if (context == nullptr)
            return;

        for (const auto* module : { "libpipewire-module-protocol-native", "libpipewire-module-profiler" })
            isComplete = pw_context_load_module (context, module, nullptr, nullptr) != nullptr && isComplete;
    }

    ~Connection() override
    {
        disconnect();

        if (context != nullptr)
            pw_context_destroy (context);

        if (loop != nullptr)
        {
            pw_loop_leave (loop);
            pw_loop_destroy (loop);
        }

        pw_deinit();
    }

    Connection (const Connection&) = delete;
    Connection& operator= (const Connection&) = delete;

    std::string getError() const override
    {
        return context != nullptr && isComplete ? "" : "PipeWire's modules cannot be loaded";
    }

    bool isConnected() const override { return core != nullptr && ! isLost; }
    int getDescriptor() const override { return pw_loop_get_fd (loop); }
    void dispatch() override { pw_loop_iterate (loop, 0); }

    bool connect() override
    {
        disconnect();

        // Newer PipeWires have a separate socket for clients that see everything.
        for (const auto* name : { PW_DEFAULT_REMOTE "-manager", PW_DEFAULT_REMOTE })
            if (core == nullptr)
                core = pw_context_connect (
                    context,
                    pw_properties_new (PW_KEY_MEDIA_CATEGORY, "Manager", PW_KEY_REMOTE_NAME, name, nullptr),
                    0);

        if (core == nullptr)
            return false;

        isLost = false;
        pw_core_add_listener (core, &coreHook, &coreEvents, this);
        registry = pw_core_get_registry (core, PW_VERSION_REGISTRY, 0);

        if (registry == nullptr)
            isLost = true;
        else
            pw_registry_add_listener (registry, &registryHook, &registryEvents, this);

        numRounds = 2;
        pw_core_sync (core, PW_ID_CORE, 0);
        return ! isLost;
    }

private:
    void disconnect()
    {
        proxies.clear();

        if (registry != nullptr)
        {
            spa_hook_remove (&registryHook);
            pw_proxy_destroy (reinterpret_cast<pw_proxy*> (registry));
            registry = nullptr;
        }

        if (core != nullptr)
        {
            spa_hook_remove (&coreHook);
            pw_core_disconnect (core);
            core = nullptr;
        }
    }

    void add (std::uint32_t id, std::string_view type, const Properties& properties)
    {
        if (type == PW_TYPE_INTERFACE_Profiler)
        {
            bind (id, PW_TYPE_INTERFACE_Profiler, PW_VERSION_PROFILER, &profilerEvents);
            listener.profilerAdded (id);
        }
        else if (type == PW_TYPE_INTERFACE_Device && getFirst (properties, { PW_KEY_MEDIA_CLASS }) == "Audio/Device")
            bind (id, PW_TYPE_INTERFACE_Device, PW_VERSION_DEVICE, &deviceEvents);
        else if (type == PW_TYPE_INTERFACE_Node)
            bind (id, PW_TYPE_INTERFACE_Node, PW_VERSION_NODE, &nodeEvents);
        else if (type == PW_TYPE_INTERFACE_Client)
            listener.clientAdded (id, properties);
        else if (type == PW_TYPE_INTERFACE_Link)
            listener.linkAdded (id,
                                parseId (getFirst (properties, { PW_KEY_LINK_OUTPUT_NODE })),
                                parseId (getFirst (properties, { PW_KEY_LINK_INPUT_NODE })));
    }

    void bind (std::uint32_t id, const char* type, std::uint32_t version, const void* events)
    {
        auto* bound = static_cast<pw_proxy*> (pw_registry_bind (registry, id, type, version, 0));

        if (bound == nullptr)
            return;

        auto& proxy = proxies[id];
        proxy = std::make_unique<Proxy> (listener, id, bound);
        pw_proxy_add_object_listener (bound, &proxy->hook, events, proxy.get());
    }

    static void noteGlobal (void* data,
                            std::uint32_t id,
                            std::uint32_t /*permissions*/,
                            const char* type,
                            std::uint32_t /*version*/,
                            const spa_dict* properties)
    {
        static_cast<Connection*> (data)->add (id, type, readProperties (properties));
    }

    static void noteRemoval (void* data, std::uint32_t id)
    {
        auto& connection = *static_cast<Connection*> (data);
        connection.proxies.erase (id);
        connection.listener.removed (id);
    }

    /* What is requested while the objects arrive is answered after them: hence a second round. */
    static void noteDone (void* data, std::uint32_t id, int)
    {
        auto& connection = *static_cast<Connection*> (data);

        if (id != PW_ID_CORE || connection.numRounds == 0)
            return;

        if (--connection.numRounds > 0)
            pw_core_sync (connection.core, PW_ID_CORE, 0);
        else
            connection.listener.settled();
    }

    static void noteError (void* data, std::uint32_t id, int, int result, const char*)
    {
        if (id == PW_ID_CORE && result == -EPIPE)
            static_cast<Connection*> (data)->isLost = true;
    }

    // Not by name: which other events there are depends on the version of PipeWire.
    static constexpr auto coreEvents = []
    {
        pw_core_events events {};
        events.version = PW_VERSION_CORE_EVENTS;
        events.done = noteDone;
        events.error = noteError;
        return events;
    }();

    static constexpr pw_registry_events registryEvents { .version = PW_VERSION_REGISTRY_EVENTS,
                                                         .global = noteGlobal,
                                                         .global_remove = noteRemoval };

    GraphListener& listener;
    pw_loop* loop = nullptr;
    pw_context* context = nullptr;
    pw_core* core = nullptr;
    pw_registry* registry = nullptr;
    spa_hook coreHook {}, registryHook {};
    std::map<std::uint32_t, std::unique_ptr<Proxy>> proxies;
    int numRounds = 0; // until all objects have been announced
    bool isComplete = true;
    bool isLost = false;
};
} // namespace

//==============================================================================
std::string getFirst (const Properties& properties, std::initializer_list<const char*> keys)
{
    for (const auto* key : keys)
        if (const auto found = properties.find (key); found != properties.end() && ! found->second.empty())
            return found->second;

    return {};
}

std::unique_ptr<Graph> Graph::make (GraphListener& listener)
{
    return std::make_unique<Connection> (listener);
}

} // namespace PipeWire
