# The toolkit's modules, compiled once into a library that program, tests and benchmarks link.

find_package (JUCE 7.0.5 CONFIG REQUIRED)

add_library (quendel-toolkit STATIC)

target_link_libraries (quendel-toolkit PRIVATE
    juce::juce_core
    juce::juce_data_structures
    juce::juce_events
    juce::juce_graphics
    juce::juce_gui_basics)

target_compile_definitions (quendel-toolkit PUBLIC
    JUCE_GLOBAL_MODULE_SETTINGS_INCLUDED=1
    JUCE_STANDALONE_APPLICATION=1
    JUCE_MODAL_LOOPS_PERMITTED=1            # event window, message boxes and save dialog are modal
    JUCE_DISPLAY_SPLASH_SCREEN=0            # the GPL lets us leave it out
    JUCE_WEB_BROWSER=0
    JUCE_USE_CURL=0
    JUCE_STRICT_REFCOUNTEDPOINTER=1
    $<$<CONFIG:Debug>:DEBUG=1 _DEBUG=1>
    $<$<NOT:$<CONFIG:Debug>>:NDEBUG=1 _NDEBUG=1>)

if (NOT WIN32)
    # The desktop's helper programs (zenity and the like) are not modal for us and outlive a quit.
    target_compile_definitions (quendel-toolkit PUBLIC JUCE_DISABLE_NATIVE_FILECHOOSERS=1)
endif()

if (MINGW)
    # The toolkit warns that it has no DirectWrite here and draws its texts the older way.
    target_compile_options (quendel-toolkit PRIVATE -Wno-cpp)
endif()

target_compile_definitions (quendel-toolkit INTERFACE
    $<TARGET_PROPERTY:quendel-toolkit,COMPILE_DEFINITIONS>)
target_include_directories (quendel-toolkit SYSTEM INTERFACE
    $<TARGET_PROPERTY:quendel-toolkit,INCLUDE_DIRECTORIES>)

# Debian's modules use the system's image libraries instead of bundled copies.
find_package (PNG QUIET)
find_package (JPEG QUIET)

if (PNG_FOUND AND JPEG_FOUND)
    target_link_libraries (quendel-toolkit PUBLIC PNG::PNG JPEG::JPEG)
endif()

if (QUENDEL_SANITIZE MATCHES "address")
    # In each program, not in the library: the sanitizer's own libraries come before it.
    target_sources (quendel-toolkit INTERFACE "${PROJECT_SOURCE_DIR}/cmake/KeepLibraries.c")
endif()
