#pragma once

#include <fuzzer/FuzzedDataProvider.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

/** What libFuzzer calls with each input. */
extern "C" int LLVMFuzzerTestOneInput (const std::uint8_t* data, std::size_t size);

/** Ends the run with a finding unless something that must hold does. */
inline void require (bool holds, const char* what)
{
    if (holds)
        return;

    std::fprintf (stderr, "Does not hold: %s\n", what);
    std::abort();
}

/** Bytes; no text that a target takes from its input is longer. */
inline constexpr std::size_t maximumTextLength = 255;

/** A folder of its own for the whole run, below TMPDIR; the code under test takes "machine" in it for the machine
    folder.
*/
class FuzzFolder
{
public:
    FuzzFolder()
    {
        auto path = (std::filesystem::temp_directory_path() / "quendel-fuzz-XXXXXX").string();
        require (::mkdtemp (path.data()) != nullptr, "there is a temporary folder");
        root = path;
        ::setenv ("QUENDEL_MACHINE", getMachine().c_str(), 1);
    }

    ~FuzzFolder()
    {
        std::error_code ignored;
        std::filesystem::remove_all (root, ignored);
    }

    const std::filesystem::path& getRoot() const { return root; }
    std::filesystem::path getMachine() const { return root / "machine"; }

private:
    std::filesystem::path root;
};

template <typename Bytes>
void writeFile (const std::filesystem::path& file, const Bytes& bytes)
{
    std::ofstream stream (file, std::ios::binary);
    stream.write (reinterpret_cast<const char*> (bytes.data()), static_cast<std::streamsize> (bytes.size()));
}

/** Open descriptors of this process. */
inline std::ptrdiff_t countDescriptors()
{
    return std::distance (std::filesystem::directory_iterator ("/proc/self/fd"), {});
}
