# Makes the few changes to the toolkit's modules that light running needs: toolkit-changes/NAME.cmake, each with its reason.
# Each sets `file`, a module's file by all the names that it has had, and calls quendel_change_toolkit for each place in it.

# Puts one text in the place of another, which must stand in the file exactly once, whatever its line ends.
function (quendel_change_toolkit found replacement)
    set (text "")

    foreach (name IN LISTS file)
        if (EXISTS "${changedModules}/${name}")
            set (path "${changedModules}/${name}")
            file (READ "${path}" text)
        endif()
    endforeach()

    string (REPLACE "\r\n" "\n" text "${text}")
    string (FIND "${text}" "${found}" first)
    string (FIND "${text}" "${found}" last REVERSE)

    if (first EQUAL -1 OR NOT first EQUAL last)
        message (FATAL_ERROR "${change} does not fit JUCE ${version}: not exactly once in ${file}:\n${found}")
    endif()

    string (REPLACE "${found}" "${replacement}" text "${text}")

    # Not file (WRITE), which writes the system's line ends; this one ends the last line itself.
    string (REGEX REPLACE "\n$" "" text "${text}")
    file (CONFIGURE OUTPUT "${path}" CONTENT "@text@" @ONLY NEWLINE_STYLE UNIX)
endfunction()

# Copies modules from one folder to another and changes them there: quendel_change_modules (FROM TO MODULE...)
function (quendel_change_modules originalModules changedModules)
    file (STRINGS "${originalModules}/juce_core/system/juce_StandardHeader.h" numbers
          REGEX "#define JUCE_(MAJOR_VERSION|MINOR_VERSION|BUILDNUMBER) ")
    string (REGEX MATCHALL "[0-9]+" numbers "${numbers}")
    list (JOIN numbers "." version)

    if (NOT version MATCHES "^(7\\.0\\.5|8\\.0\\.6)$")
        message (FATAL_ERROR "${originalModules} is JUCE ${version}; the changes are for 7.0.5 and 8.0.6.")
    endif()

    # Made anew only when something else would come out, so that configuring again compiles nothing.
    file (GLOB changes "${CMAKE_CURRENT_FUNCTION_LIST_DIR}/toolkit-changes/*.cmake")
    set_property (DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${changes})
    set (origin "${originalModules} ${version}")

    foreach (file IN LISTS changes)
        file (SHA256 "${file}" hash)
        string (APPEND origin " ${hash}")
    endforeach()

    if (EXISTS "${changedModules}/origin")
        file (READ "${changedModules}/origin" madeFrom)

        if (madeFrom STREQUAL origin)
            return()
        endif()
    endif()

    file (REMOVE_RECURSE "${changedModules}")
    list (TRANSFORM ARGN PREPEND "${originalModules}/" OUTPUT_VARIABLE modules)
    file (COPY ${modules} DESTINATION "${changedModules}")

    foreach (change IN LISTS changes)
        include ("${change}")
    endforeach()

    file (WRITE "${changedModules}/origin" "${origin}")
endfunction()
