#include "refhost/config/ConfigWriter.h"

#include <string_view>

#include "refhost/base/Hex.h"
#include "refhost/base/Log.h"
#include "refhost/base/Quantity.h"
#include "refhost/config/ConfigKeys.h"
#include "refhost/config/ConfigSections.h"

namespace refhost
{
namespace
{

// A TOML basic string.
std::string quoted(std::string_view text)
{
    std::string out = "\"";
    for (const char c : text)
    {
        const auto byte = static_cast<unsigned char>(c);
        if (byte < 0x20 || byte == 0x7f)
        {
            out += "\\u00";
            appendHex8(out, byte);
            continue;
        }
        if (c == '"' || c == '\\')
        {
            out += '\\';
        }
        out += c;
    }
    return out + '"';
}

std::string range(int min, int max, int step)
{
    return std::to_string(min) + " to " + std::to_string(max) + (step == 2 ? ", even" : "");
}

// Value and permitted values of a setting as text.
template <typename Section>
class SettingText
{
public:
    explicit SettingText(const Section& section) : section_(section) {}

    std::string value(const ConfigKey<Section>& key)
    {
        return std::visit([this](const auto& setting) { return toText(setting); }, key.setting);
    }

    static std::string permitted(const ConfigKey<Section>& key)
    {
        return std::visit([](const auto& setting) { return permittedBy(setting); }, key.setting);
    }

    /// A comment on a value that is hidden or masked.
    std::string remark(const ConfigKey<Section>& key)
    {
        const auto* const text = std::get_if<TextSetting<Section>>(&key.setting);
        if (isSecret(key) || (text != nullptr && isHidden(*text)))
        {
            return "  # hidden: put it in";
        }
        const bool masked = text != nullptr && text->kind == TextKind::location &&
                            Log::maskUrl(text->value.of(section_)) != text->value.of(section_);
        return masked ? "  # credentials are masked: put them in" : "";
    }

    static bool isSecret(const ConfigKey<Section>& key)
    {
        const auto* const text = std::get_if<TextSetting<Section>>(&key.setting);
        return text != nullptr && (text->kind == TextKind::password || text->kind == TextKind::passwordHash);
    }

    /// Whether the value is one that must be left out of a file: said nothing, it means something else.
    bool isLeftOut(const ConfigKey<Section>& key) const
    {
        const auto* const text = std::get_if<TextSetting<Section>>(&key.setting);
        return text != nullptr && text->kind == TextKind::cameras && text->value.of(section_).empty();
    }

    /// Empty where nothing is said by default.
    static std::string byDefault(const ConfigKey<Section>& key)
    {
        SettingText setting{Section()};
        return isSecret(key) || setting.isLeftOut(key) ? "" : setting.value(key);
    }

private:
    bool isHidden(const TextSetting<Section>& setting) const
    {
        return setting.kind == TextKind::hook && !setting.value.of(section_).empty();
    }

    std::string toText(const NumberSetting<Section>& setting)
    {
        return std::to_string(setting.value.of(section_));
    }

    std::string toText(const QuantitySetting<Section>& setting)
    {
        const std::int64_t value = setting.value.of(section_);
        if (value == 0)
        {
            return "0";
        }
        return quoted(setting.kind == QuantitySetting<Section>::Kind::size
                          ? sizeText(value)
                          : timeText(std::chrono::seconds(value)));
    }

    std::string toText(const FlagSetting<Section>& setting)
    {
        return setting.value.of(section_) ? "true" : "false";
    }

    std::string toText(const ChoiceSetting<Section>& setting)
    {
        return quoted(setting.get(section_));
    }

    std::string toText(const TextSetting<Section>& setting)
    {
        if (setting.kind == TextKind::password || setting.kind == TextKind::passwordHash || isHidden(setting))
        {
            return "\"…\"";
        }
        const std::string& text = setting.value.of(section_);
        return quoted(setting.kind == TextKind::location ? Log::maskUrl(text) : text);
    }

    static std::string permittedBy(const NumberSetting<Section>& setting)
    {
        return range(setting.min, setting.max, setting.step);
    }

    static std::string permittedBy(const QuantitySetting<Section>& setting)
    {
        return setting.kind == QuantitySetting<Section>::Kind::size
                   ? "a size, or a number of " + sizeText(setting.bareUnit).substr(1)
                   : "a time, or a number of " + timeText(std::chrono::seconds(setting.bareUnit)).substr(1);
    }

    static std::string permittedBy(const FlagSetting<Section>&)
    {
        return "true or false";
    }

    static std::string permittedBy(const ChoiceSetting<Section>& setting)
    {
        std::string list;
        for (const std::string_view choice : setting.choices)
        {
            list += (list.empty() ? "" : ", ") + quoted(choice);
        }
        return list;
    }

    static std::string permittedBy(const TextSetting<Section>& setting)
    {
        switch (setting.kind)
        {
            case TextKind::address:
                return "a numeric address";
            case TextKind::anyAddress:
                return "a numeric address, or empty";
            case TextKind::endpoint:
                return "an address with a port, or empty";
            case TextKind::groupRange:
                return "IPv4 multicast addresses with a length";
            case TextKind::cameras:
                return "\"*\", \"none\", or numbers such as \"1, 3-5\"";
            case TextKind::names:
                return "names, or empty";
            case TextKind::freeSpace:
                return "a size, a share, or \"auto\"";
            case TextKind::group:
                return "a multicast address and port, or empty";
            case TextKind::fingerprint:
                return "64 hexadecimal digits, with or without colons, or empty";
            default:
                return "text";
        }
    }

    Section section_;
};

// `text` wrapped to readable lines, each after "# ".
std::string comment(const std::string& indent, const std::string& text)
{
    constexpr std::size_t width = 100;
    std::string out;
    std::string line;
    std::size_t position = 0;
    while (position < text.size())
    {
        const std::size_t blank = std::min(text.find(' ', position), text.size());
        const std::string word = text.substr(position, blank - position);
        if (!line.empty() && indent.size() + 2 + line.size() + 1 + word.size() > width)
        {
            out.append(indent).append("# ").append(line).append("\n");
            line.clear();
        }
        line.append(line.empty() ? "" : " ").append(word);
        position = blank + 1;
    }
    return out + indent + "# " + line + "\n";
}

template <typename Section>
std::string explanation(const ConfigKey<Section>& key)
{
    std::string text = std::string(key.meaning) + " (" + SettingText<Section>::permitted(key);
    const std::string byDefault = SettingText<Section>::byDefault(key);
    return text + (byDefault.empty() ? ")" : "; default " + byDefault + ")");
}

/// \param explained  write each key's comment; only for the first section of a list
template <typename Section>
std::string section(const Section& values, const std::string& indent, bool explained)
{
    std::string out;
    SettingText<Section> setting(values);
    for (const ConfigKey<Section>& key : configKeys<Section>())
    {
        if (explained)
        {
            out += comment(indent, explanation(key));
        }
        const bool commented = SettingText<Section>::isSecret(key) || setting.isLeftOut(key);
        out += indent + (commented ? "# " : "") + std::string(key.name) + " = " + setting.value(key) +
               setting.remark(key) + "\n";
    }
    return out;
}

std::string commentedOut(const std::string& text)
{
    std::string out;
    std::size_t position = 0;
    while (position < text.size())
    {
        const std::size_t end = text.find('\n', position);
        const std::string line = text.substr(position, end - position);
        out += line.rfind('#', 0) == 0 ? line + "\n" : "# " + line + "\n";
        position = end + 1;
    }
    return out;
}

std::string cell(std::string text)
{
    for (std::size_t bar = text.find('|'); bar != std::string::npos; bar = text.find('|', bar + 2))
    {
        text.insert(bar, "\\");
    }
    return text;
}

template <typename Section>
std::string formerName(const ConfigKey<Section>& key)
{
    return key.former.empty() ? "" : " Formerly `" + std::string(key.former) + "`.";
}

template <typename Section>
std::string table(const std::string& heading)
{
    std::string out =
        "### " + heading + "\n\n| Key | Meaning | Values | Default | When changed |\n|---|---|---|---|---|\n";
    for (const ConfigKey<Section>& key : configKeys<Section>())
    {
        const std::string byDefault = SettingText<Section>::byDefault(key);
        out += "| `" + std::string(key.name) + "` | " + cell(std::string(key.meaning)) + formerName(key) +
               " | " + cell(SettingText<Section>::permitted(key)) + " | " +
               (byDefault.empty() ? "none" : "`" + byDefault + "`") + " | " +
               std::string(textOf(key.effect)) + " |\n";
    }
    return out + "\n";
}

template <typename Section>
void writeWithin(const Section& parent, const std::string& indent, bool explained, std::string& out);

template <typename Section, typename Parent>
void writeSection(const SingleSection<Section, Parent>& single, const Parent& parent, const std::string&,
                  bool explained, std::string& out)
{
    out += "\n# " + std::string(single.purpose) + "\n" + single.heading() + "\n" +
           section(parent.*single.values, "", explained);
}

// Whether a section is of another file, which the dump names.
template <typename Section>
bool isElsewhere(const Section&)
{
    return false;
}

bool isElsewhere(const GroupConfig& group)
{
    return group.inUsersFile;
}

bool isElsewhere(const UserConfig& user)
{
    return user.inUsersFile;
}

template <typename Section, typename Parent>
void writeSection(const SectionList<Section, Parent>& list, const Parent& parent, const std::string& indent,
                  bool explained, std::string& out)
{
    if (!list.purpose.empty())
    {
        out += "\n# " + std::string(list.purpose) + "\n";
    }
    const std::vector<Section>& all = parent.*list.values;
    if (all.empty() && list.example != nullptr)
    {
        out += commentedOut(list.heading() + "\n" + section(list.example(), "", true));
    }
    bool first = true;
    for (const Section& values : all)
    {
        if (isElsewhere(values))
        {
            continue;
        }
        out += (first && !list.purpose.empty() ? "" : "\n") + indent + list.heading() + "\n" +
               section(values, indent, explained && first);
        writeWithin(values, indent + "  ", explained && first, out);
        first = false;
    }
}

template <typename Section>
void writeWithin(const Section& parent, const std::string& indent, bool explained, std::string& out)
{
    eachSectionIn<Section>([&](const auto& within) { writeSection(within, parent, indent, explained, out); });
}

template <typename Section, typename Parent>
std::string title(const SingleSection<Section, Parent>& single)
{
    return "`" + single.heading() + "`";
}

template <typename Section, typename Parent>
std::string title(const SectionList<Section, Parent>& list)
{
    return "Each `" + list.heading() + "`";
}

template <typename Section>
std::string tables(const std::string& heading)
{
    std::string out = table<Section>(heading);
    eachSectionIn<Section>([&](const auto& within)
                           { out += tables<ValuesOf<decltype(within)>>(title(within)); });
    return out;
}

}  // namespace

std::string ConfigWriter::write(const ServerConfig& config)
{
    std::string out = section(config, "", true);
    writeWithin(config, "", true, out);
    return out;
}

std::string ConfigWriter::manual()
{
    return tables<ServerConfig>("Top of the file");
}

}  // namespace refhost
