#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace Machine
{

/** The command line of a driver process, and all that the process says of itself: its manual page is made of its help.
 */
struct CommandLine
{
    struct Option
    {
        std::string name;  /**< Without the hyphens. */
        std::string value; /**< What the help calls its value; empty: it takes none. */
        std::string explanation;

        /** Takes the value over; returns an empty string, or what it should have been. */
        std::function<std::string (const std::string& value)> take;
    };

    std::string program;
    std::string purpose;         /**< A paragraph, in whole lines. */
    std::vector<Option> options; /**< Without those that all driver processes have. */
    std::string details;         /**< Further paragraphs, in whole lines. */
    std::string* machine; /**< Not owned; receives the path of the machine folder, or stays empty: the usual one. */

    /** Reads the options in.

        @returns nothing when the process is to go on, else the exit code that it is to end with; then it has said why
    */
    std::optional<int> read (int numArguments, char* const* arguments) const;

    /** The same, silently.

        @returns an empty string, or one line that says what is wrong
    */
    std::string parse (int numArguments, char* const* arguments, bool& wantsHelp) const;

    std::string getHelp() const;

    /** Writes a line on standard error. */
    void say (const std::string& text) const;

    /** Says on standard error why the process cannot start; returns the exit code that it is to end with. */
    int fail (const std::string& reason) const;
};

/** A line of help: what can be said to a program, and what that does. */
std::string explain (const std::string& what, const std::string& explanation);

} // namespace Machine
