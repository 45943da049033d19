#pragma once

#include <cstdint>
#include <initializer_list>
#include <map>
#include <memory>
#include <span>
#include <string>

namespace PipeWire
{

/** Properties of an object, as PipeWire has them. */
using Properties = std::map<std::string, std::string>;

/** The first of these properties that there is; empty when there is none. */
std::string getFirst (const Properties& properties, std::initializer_list<const char*> keys);

/** Receives what a Graph hears. Called inside Graph::dispatch(). Ids are those of PipeWire's globals. */
class GraphListener
{
public:
    virtual ~GraphListener() = default;

    /** An object has appeared: called once for each. */
    virtual void clientAdded (std::uint32_t id, const Properties& properties) = 0;
    virtual void deviceAdded (std::uint32_t id, const Properties& properties) = 0;
    virtual void nodeAdded (std::uint32_t id, const Properties& properties) = 0;
    virtual void linkAdded (std::uint32_t id, std::uint32_t outputNode, std::uint32_t inputNode) = 0;
    virtual void profilerAdded (std::uint32_t id) = 0;

    /** All objects that were there at the start have been announced. */
    virtual void settled() = 0;

    /** A node has stopped. */
    virtual void nodeStopped (std::uint32_t id) = 0;

    /** Any object has gone, known to the listener or not. */
    virtual void removed (std::uint32_t id) = 0;

    /** The profiler has sent something; valid during the call. */
    virtual void profiled (std::span<const std::uint8_t> message) = 0;
};

/** A connection to PipeWire, with its objects and its profiler, on the thread that uses it. */
class Graph
{
public:
    /** @param listener  not owned; must outlive the graph */
    static std::unique_ptr<Graph> make (GraphListener& listener);

    virtual ~Graph() = default;

    /** An empty string when PipeWire can be connected to at some time, else one line that says why it cannot. */
    virtual std::string getError() const = 0;

    /** Tries to connect; false when there is no PipeWire. */
    virtual bool connect() = 0;

    /** False once the connection is lost; the objects are then gone, and no removal is reported. */
    virtual bool isConnected() const = 0;

    /** Readable when dispatch() has something to do. */
    virtual int getDescriptor() const = 0;

    /** Calls the listener for everything that has arrived. Does not wait. */
    virtual void dispatch() = 0;
};

} // namespace PipeWire
