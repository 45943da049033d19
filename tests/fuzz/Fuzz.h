#pragma once

#include "tests/unit/support/TestDriver.h"

#include <fuzzer/FuzzedDataProvider.h>

#include <cstdio>
#include <filesystem>
#include <fstream>

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

template <typename Bytes>
void writeFile (const std::filesystem::path& file, const Bytes& bytes)
{
    std::ofstream stream (file, std::ios::binary);
    stream.write (reinterpret_cast<const char*> (bytes.data()), static_cast<std::streamsize> (bytes.size()));
}
