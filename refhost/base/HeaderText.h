#pragma once

#include <string_view>

namespace refhost
{

/// Text functions shared by the header parsers. ASCII, independent of the locale. Threads: any; no state.
class HeaderText
{
public:
    /// Removes blanks, tabs and line ends of folded lines at both ends.
    static std::string_view trim(std::string_view text);

    /// Cuts `rest` at its next `separator` outside double quotes.
    /// \param[in,out] rest  loses the part and the separator; becomes empty after the last part
    /// \returns the part, trimmed
    static std::string_view cut(std::string_view& rest, char separator);

    /// Removes double quotes around the text, if any. Escapes inside are kept.
    static std::string_view unquote(std::string_view text);

    /// Whether the text is a token, as method and header names (RFC 2326, section 15.1).
    static bool isToken(std::string_view text);
};

}  // namespace refhost
