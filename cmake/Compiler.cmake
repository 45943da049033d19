# Compiler cache, sanitizers and the warnings that our own code is held to.

find_program (CCACHE_PROGRAM ccache)

if (CCACHE_PROGRAM)
    # Another checkout of the same sources finds what this one has compiled.
    set (launcher "${CMAKE_COMMAND}" -E env "CCACHE_BASEDIR=${PROJECT_SOURCE_DIR}" CCACHE_NOHASHDIR=1 "${CCACHE_PROGRAM}")
    set (CMAKE_C_COMPILER_LAUNCHER "${launcher}")
    set (CMAKE_CXX_COMPILER_LAUNCHER "${launcher}")
endif()

if (QUENDEL_SANITIZE)
    add_compile_options (-fsanitize=${QUENDEL_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
    add_link_options (-fsanitize=${QUENDEL_SANITIZE})
endif()

# One file that runs on its own.
set (CMAKE_MSVC_RUNTIME_LIBRARY "MultiThreaded$<$<CONFIG:Debug>:Debug>")

# For those who develop it: a newer compiler's new warnings are nobody else's concern.
option (QUENDEL_WERROR "Warnings in our own code are errors" OFF)

# The toolkit's headers are system headers and stay out of it.
function (quendel_own_code target)
    target_link_libraries (${target} PRIVATE juce::juce_recommended_warning_flags)

    set_target_properties (${target} PROPERTIES COMPILE_WARNING_AS_ERROR ${QUENDEL_WERROR})

    if (MSVC)
        target_compile_options (${target} PRIVATE /utf-8 /permissive-)
        target_compile_definitions (${target} PRIVATE _CRT_SECURE_NO_WARNINGS)
    else()
        # gcc 12 sees overlapping copies in the standard library's own string concatenation once it optimises.
        target_compile_options (${target} PRIVATE $<$<CXX_COMPILER_ID:GNU>:-Wno-restrict>)
    endif()
endfunction()
