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

# Only folders whose targets this configuration builds are looked at.
set (folders "source")

if (NOT WIN32)
    list (APPEND folders "drivers")
endif()

if (QUENDEL_TESTS AND NOT WIN32)
    list (APPEND folders "tests/unit")
endif()

if (QUENDEL_BENCHMARKS AND NOT WIN32)
    list (APPEND folders "benchmarks")
endif()

if (QUENDEL_FUZZERS)
    list (APPEND folders "tests/fuzz")
endif()

foreach (folder IN LISTS folders)
    file (GLOB_RECURSE found "${CMAKE_CURRENT_SOURCE_DIR}/${folder}/*.cpp")

    foreach (file IN LISTS found)
        # Files of the other system are rightly left out.
        if (file MATCHES "/(windows|linux)/")
            continue()
        endif()

        if (NOT file IN_LIST QUENDEL_ALL_SOURCES)
            message (FATAL_ERROR "${file} is in no target")
        endif()
    endforeach()
endforeach()
