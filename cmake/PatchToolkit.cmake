# Copies the toolkit's modules to where the build may change them, and applies the few changes that light running needs:
# toolkit-patches/VERSION/*.patch, each with its reason.
#
# toolkitAsItComes  the folder of the modules as they come
# toolkitPatched    the folder of the copies
# toolkitModules    the modules' names

find_package (Patch REQUIRED)

function (quendel_patch_toolkit)
    file (STRINGS "${toolkitAsItComes}/juce_core/system/juce_StandardHeader.h" numbers
          REGEX "#define JUCE_(MAJOR_VERSION|MINOR_VERSION|BUILDNUMBER) ")
    string (REGEX MATCHALL "[0-9]+" numbers "${numbers}")
    list (JOIN numbers "." version)

    set (folder "${PROJECT_SOURCE_DIR}/cmake/toolkit-patches")
    file (GLOB patches "${folder}/${version}/*.patch")

    if (NOT patches)
        file (GLOB known RELATIVE "${folder}" "${folder}/*")
        list (JOIN known ", " known)
        message (FATAL_ERROR "${toolkitAsItComes} is JUCE ${version}; Quendel has patches for ${known}.")
    endif()

    if (WIN32 AND NOT EXISTS "${folder}/${version}/windows-refresh.patch")
        message (FATAL_ERROR "There are no patches for JUCE ${version} on Windows.")
    endif()

    set_property (DIRECTORY "${PROJECT_SOURCE_DIR}" APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${patches})

    # Made anew only when something else would come out, so that configuring again compiles nothing.
    set (origin "${toolkitAsItComes} ${version}")

    foreach (patch IN LISTS patches)
        file (SHA256 "${patch}" hash)
        string (APPEND origin " ${hash}")
    endforeach()

    if (EXISTS "${toolkitPatched}/origin")
        file (READ "${toolkitPatched}/origin" madeFrom)

        if (madeFrom STREQUAL origin)
            return()
        endif()
    endif()

    file (REMOVE_RECURSE "${toolkitPatched}")

    foreach (module IN LISTS toolkitModules)
        file (COPY "${toolkitAsItComes}/${module}" DESTINATION "${toolkitPatched}")
    endforeach()

    foreach (patch IN LISTS patches)
        file (STRINGS "${patch}" changed REGEX "^\\+\\+\\+ b/")

        foreach (line IN LISTS changed)
            # The toolkit comes with line ends of either kind.
            string (SUBSTRING "${line}" 6 -1 file)
            file (READ "${toolkitPatched}/${file}" text)
            string (REPLACE "\r\n" "\n" text "${text}")
            file (WRITE "${toolkitPatched}/${file}" "${text}")
        endforeach()

        execute_process (COMMAND "${Patch_EXECUTABLE}" -p1 --fuzz=0 --batch --forward "--input=${patch}"
                         WORKING_DIRECTORY "${toolkitPatched}"
                         RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_VARIABLE output)

        if (NOT result EQUAL 0)
            message (FATAL_ERROR "${patch} does not fit the toolkit in ${toolkitAsItComes}:\n${output}")
        endif()
    endforeach()

    file (WRITE "${toolkitPatched}/origin" "${origin}")
endfunction()

quendel_patch_toolkit()

# A target's modules are the patched ones, unless its property TOOLKIT_AS_IT_COMES is set.
foreach (module IN LISTS toolkitModules)
    foreach (property INTERFACE_SOURCES INTERFACE_INCLUDE_DIRECTORIES)
        get_target_property (paths ${module} ${property})
        string (REPLACE "${toolkitAsItComes}"
                "$<IF:$<BOOL:$<TARGET_PROPERTY:TOOLKIT_AS_IT_COMES>>,${toolkitAsItComes},${toolkitPatched}>"
                paths "${paths}")
        set_property (TARGET ${module} PROPERTY ${property} "${paths}")
    endforeach()
endforeach()
