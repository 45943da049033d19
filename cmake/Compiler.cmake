# Compiler cache, sanitizers and the warnings that our own code is held to.

find_program (CCACHE_PROGRAM ccache)

if (CCACHE_PROGRAM)
    set (CMAKE_C_COMPILER_LAUNCHER "${CCACHE_PROGRAM}")
    set (CMAKE_CXX_COMPILER_LAUNCHER "${CCACHE_PROGRAM}")
endif()

if (QUENDEL_SANITIZE)
    add_compile_options (-fsanitize=${QUENDEL_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
    add_link_options (-fsanitize=${QUENDEL_SANITIZE})
endif()

# Warnings are errors in our code; the toolkit's headers are system headers and stay out of it.
function (quendel_own_code target)
    target_link_libraries (${target} PRIVATE juce::juce_recommended_warning_flags)

    if (MSVC)
        target_compile_options (${target} PRIVATE /WX)
    else()
        # gcc 12 sees overlapping copies in the standard library's own string concatenation once it optimises.
        target_compile_options (${target} PRIVATE -Werror $<$<CXX_COMPILER_ID:GNU>:-Wno-restrict>)
    endif()
endfunction()
