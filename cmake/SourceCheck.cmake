# A source file that is in no target is dead and nobody notices: say so when configuring.

set (QUENDEL_ALL_SOURCES "")

function (quendel_collect_sources directory)
    get_property (targets DIRECTORY "${directory}" PROPERTY BUILDSYSTEM_TARGETS)

    foreach (target IN LISTS targets)
        get_target_property (sources ${target} SOURCES)
        get_target_property (folder ${target} SOURCE_DIR)

        foreach (source IN LISTS sources)
            if (source AND NOT source MATCHES "^\\$<")
                cmake_path (ABSOLUTE_PATH source BASE_DIRECTORY "${folder}" NORMALIZE)
                list (APPEND QUENDEL_ALL_SOURCES "${source}")
            endif()
        endforeach()
    endforeach()

    get_property (subfolders DIRECTORY "${directory}" PROPERTY SUBDIRECTORIES)

    foreach (subfolder IN LISTS subfolders)
        quendel_collect_sources ("${subfolder}")
    endforeach()

    set (QUENDEL_ALL_SOURCES "${QUENDEL_ALL_SOURCES}" PARENT_SCOPE)
endfunction()

quendel_collect_sources ("${CMAKE_CURRENT_SOURCE_DIR}")

# Only folders whose targets this configuration builds are looked at, and in them not the other system's.
set (folders "source")

if (WIN32)
    set (otherSystem "linux")

    if (MINGW)
        list (APPEND folders "drivers/windows")
    endif()

    if (MINGW AND QUENDEL_TESTS)
        list (APPEND folders "tests/unit/windows")
    endif()
else()
    set (otherSystem "windows")
    list (APPEND folders "drivers")

    if (QUENDEL_TESTS)
        list (APPEND folders "tests/unit")
    endif()

    if (QUENDEL_BENCHMARKS)
        list (APPEND folders "benchmarks")
    endif()

    if (QUENDEL_FUZZERS)
        list (APPEND folders "tests/fuzz")
    endif()
endif()

foreach (folder IN LISTS folders)
    file (GLOB_RECURSE found RELATIVE "${CMAKE_CURRENT_SOURCE_DIR}" "${CMAKE_CURRENT_SOURCE_DIR}/${folder}/*.cpp")

    foreach (file IN LISTS found)
        if (NOT file MATCHES "/${otherSystem}/" AND NOT "${CMAKE_CURRENT_SOURCE_DIR}/${file}" IN_LIST QUENDEL_ALL_SOURCES)
            message (FATAL_ERROR "${file} is in no target")
        endif()
    endforeach()
endforeach()
