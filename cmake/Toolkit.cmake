# The toolkit's modules, compiled once into a library that program, tests and benchmarks link.

find_package (JUCE CONFIG QUIET)

if (NOT JUCE_FOUND)
    message (STATUS "JUCE is not installed: fetching it")
    include (FetchContent)
    FetchContent_Declare (JUCE
        GIT_REPOSITORY https://github.com/juce-framework/JUCE.git
        GIT_TAG 7.0.5
        GIT_SHALLOW ON)
    FetchContent_MakeAvailable (JUCE)
endif()

set (toolkitModules juce_core juce_data_structures juce_events juce_graphics juce_gui_basics)
get_target_property (toolkitAsItComes juce_core INTERFACE_JUCE_MODULE_PATH)
set (toolkitChanged "${PROJECT_BINARY_DIR}/toolkit")

include (ChangeToolkit)
quendel_change_modules ("${toolkitAsItComes}" "${toolkitChanged}" ${toolkitModules})

# A target's modules are the changed ones, unless its property TOOLKIT_AS_IT_COMES is set.
foreach (module IN LISTS toolkitModules)
    foreach (property INTERFACE_SOURCES INTERFACE_INCLUDE_DIRECTORIES)
        get_target_property (paths ${module} ${property})
        string (REPLACE "${toolkitAsItComes}"
                "$<IF:$<BOOL:$<TARGET_PROPERTY:TOOLKIT_AS_IT_COMES>>,${toolkitAsItComes},${toolkitChanged}>"
                paths "${paths}")
        set_property (TARGET ${module} PROPERTY ${property} "${paths}")
    endforeach()
endforeach()

# quendel_add_toolkit (TARGET FOLDER [OPTION...]): a library of the modules in a folder
function (quendel_add_toolkit target folder)
    add_library (${target} STATIC ${ARGN})
    list (TRANSFORM toolkitModules PREPEND juce:: OUTPUT_VARIABLE modules)
    target_link_libraries (${target} PRIVATE ${modules})

    target_compile_definitions (${target} PUBLIC
        JUCE_GLOBAL_MODULE_SETTINGS_INCLUDED=1
        JUCE_STANDALONE_APPLICATION=1
        JUCE_MODAL_LOOPS_PERMITTED=1            # event window, message boxes and save dialog are modal
        JUCE_WEB_BROWSER=0
        JUCE_USE_CURL=0
        JUCE_STRICT_REFCOUNTEDPOINTER=1
        $<$<CONFIG:Debug>:DEBUG=1 _DEBUG=1>
        $<$<NOT:$<CONFIG:Debug>>:NDEBUG=1 _NDEBUG=1>)

    if (NOT JUCE_VERSION VERSION_GREATER_EQUAL 8)
        # The GPL lets us leave it out. Later toolkits have none, and warn of being asked.
        target_compile_definitions (${target} PUBLIC JUCE_DISPLAY_SPLASH_SCREEN=0)
    endif()

    if (NOT WIN32)
        # The desktop's helper programs (zenity and the like) are not modal for us and outlive a quit.
        target_compile_definitions (${target} PUBLIC JUCE_DISABLE_NATIVE_FILECHOOSERS=1)
    endif()

    if (MINGW)
        # The toolkit warns that it has no DirectWrite here and draws its texts the older way.
        target_compile_options (${target} PRIVATE -Wno-cpp)
    endif()

    target_compile_definitions (${target} INTERFACE $<TARGET_PROPERTY:${target},COMPILE_DEFINITIONS>)
    target_include_directories (${target} SYSTEM INTERFACE "${folder}" $<TARGET_PROPERTY:${target},INCLUDE_DIRECTORIES>)

    # Debian's modules use the system's image libraries instead of bundled copies.
    if (NOT EXISTS "${folder}/juce_graphics/image_formats/pnglib")
        find_package (PNG REQUIRED)
        find_package (JPEG REQUIRED)
        target_link_libraries (${target} PUBLIC PNG::PNG JPEG::JPEG)
    endif()
endfunction()

quendel_add_toolkit (quendel-toolkit "${toolkitChanged}")

# The system's timer stays as it is: a faster one costs every program on the machine.
target_compile_definitions (quendel-toolkit PRIVATE JUCE_WIN32_TIMER_PERIOD=0)

if (QUENDEL_SANITIZE MATCHES "address")
    # In each program, not in the library: the sanitizer's own libraries come before it.
    target_sources (quendel-toolkit INTERFACE "${PROJECT_SOURCE_DIR}/cmake/KeepLibraries.c")
endif()
