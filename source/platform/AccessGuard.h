#pragma once

#include <atomic>
#include <cstddef>
#include <cstring>
#include <memory>
#include <type_traits>

/** Reads memory that belongs to a driver and may vanish while it is being read.

    A read of what is not there ends the guarded reading, quietly, and the process goes on: on any thread, any
    number of times.
*/
namespace AccessGuard
{

/** Ends the current guarded reading as a fault would. Only inside run(). */
[[noreturn]] void fault();

/** Bytes that can be read from an address on, as far as the platform knows: a section that is shorter than the
    pages it is mapped into has readable zeros behind its end, which are nobody's data.
*/
std::size_t readableBytes (const void* address) noexcept;

/** Calls reading (context); false when a fault cut it short. What it had stored until then stays stored.

    The call is left without unwinding: reading must not own anything that has a destructor. Nothing between here and
    the fault is noexcept: structured exceptions end the program there.
*/
bool run (void (*reading) (void* context), void* context);

//==============================================================================
/** Reads the fields of one block, in place. */
class BlockReader
{
public:
    explicit BlockReader (const void* blockToRead) noexcept
        : block (static_cast<const char*> (blockToRead)),
          readable (readableBytes (blockToRead))
    {
    }

    /** The field at a byte offset; need not be aligned. Faults when the block ends before it does. */
    template <typename Field>
    Field read (std::size_t offset) const
    {
        static_assert (std::is_trivially_copyable_v<Field>);

        if (offset + sizeof (Field) > readable)
            fault();

        Field field;

        // The fences keep the compiler from moving a store of the caller's across a read that may be its last.
        std::atomic_signal_fence (std::memory_order_seq_cst);
        std::memcpy (&field, block + offset, sizeof (Field));
        std::atomic_signal_fence (std::memory_order_seq_cst);
        return field;
    }

private:
    const char* block;
    std::size_t readable;
};

/** Calls reading (const BlockReader&) for the block; false when a fault cut it short. */
template <typename Reading>
bool readBlock (const void* block, Reading&& reading)
{
    struct Call
    {
        BlockReader reader;
        std::remove_reference_t<Reading>* reading;
    };

    Call call { BlockReader (block), std::addressof (reading) };

    return run (
        [] (void* context)
        {
            auto& c = *static_cast<Call*> (context);
            (*c.reading) (c.reader);
        },
        &call);
}

} // namespace AccessGuard
