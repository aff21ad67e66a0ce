#pragma once
// Tested by tests/refhost/base/LogFormat_test.cpp, tests/refhost/base/AuditLog_test.cpp.

#include <string>
#include <string_view>
#include <vector>

#include "refhost/base/Log.h"

namespace refhost
{

/// How the lines of the log are written. Threads: any.
class LogFormat
{
public:
    enum class Kind
    {
        text,  ///< time, level, thread, message
        json   ///< an object of the same, valid whatever bytes the message holds
    };

    /// One value of an event.
    struct Field
    {
        /// How the value is written.
        enum class Kind
        {
            word,  ///< letters, digits and . : - _ + / alone
            number,
            text  ///< anything; quoted
        };

        std::string_view name;  ///< a constant
        std::string value;
        Kind kind = Kind::text;
    };

    /// Takes effect with the next line. Default: `text`.
    static void set(Kind kind);
    static Kind kind();

    /// Writes an event at `level`: in text "audit: EVENT name=value …", in JSON members "event" and the
    /// fields. Quoted values have every quote, backslash and byte outside printable ASCII as \xNN, so that
    /// no value can end itself, its field or its line.
    /// \param event  a constant word
    static void write(Log::Level level, std::string_view event, const std::vector<Field>& fields);

    /// A whole line of JSON, with its newline.
    /// \param time  ISO 8601
    static std::string json(std::string_view time, std::string_view level, std::size_t thread,
                            std::string_view message);

    /// What the system's journal takes as a line's level (RFC 5424, section 6.2.1: 7 debug to 3 error):
    /// "<6>" for info. Empty unless standard error is the journal, as JOURNAL_STREAM says.
    static std::string_view journalPrefix(Log::Level level);
    /// Whether the file behind `descriptor` is the one that `journalStream` names, as "DEVICE:INODE".
    static bool isJournal(int descriptor, std::string_view journalStream);
};

}  // namespace refhost
