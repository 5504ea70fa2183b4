// The lists of interfaces as JSON.
#include <cstdio>
#include <string_view>

#include "Listing.h"
#include "Mac.h"

namespace {

using Interfaces = std::vector<Murn::NetworkInterfaceInfo>;

unsigned int byteAt(std::string_view text, std::size_t at)
{
    return at < text.size() ? static_cast<unsigned char>(text[at]) : 0;
}

// How many bytes the UTF-8 character takes that the text begins with; 0 when it begins with none.
std::size_t characterLength(std::string_view text)
{
    const unsigned int first = byteAt(text, 0);
    if (first < 0x80)
        return 1;
    const std::size_t length = first >= 0xf0 ? 4 : first >= 0xe0 ? 3 : 2;
    unsigned int code = first & (0xffU >> (length + 1));
    for (std::size_t at = 1; at < length; ++at) {
        if ((byteAt(text, at) & 0xc0U) != 0x80)
            return 0;
        code = code << 6 | (byteAt(text, at) & 0x3fU);
    }
    // No continuation in front, nothing in more bytes than it needs, no surrogates, nothing beyond the last plane.
    const unsigned int least = length == 2 ? 0x80 : length == 3 ? 0x800 : 0x10000;
    const bool isCharacter = first >= 0xc0 && code >= least && code <= 0x10ffff && (code < 0xd800 || code > 0xdfff);
    return isCharacter ? length : 0;
}

// A character that needs no escape stands for itself.
std::string escaped(std::string_view character)
{
    const unsigned int code = byteAt(character, 0);
    if (code == '"' || code == '\\')
        return "\\" + std::string(character);
    if (code >= ' ')
        return std::string(character);
    char text[7];
    std::snprintf(text, sizeof text, "\\u%04x", code);
    return text;
}

std::string inQuotes(std::string_view text)
{
    std::string result = "\"";
    while (!text.empty()) {
        const std::size_t length = characterLength(text);
        result += length != 0 ? escaped(text.substr(0, length)) : "\\ufffd";
        text.remove_prefix(length != 0 ? length : 1);
    }
    return result + "\"";
}

std::string member(const char* name, const std::string& value)
{
    return inQuotes(name) + ": " + inQuotes(value);
}

std::string addressedObject(const Murn::NetworkInterfaceInfo& info)
{
    return "{" + member("name", info.name) + ", " + member("mac", macOf(info)) + ", " +
           member("address", info.address.toString()) + "}";
}

std::string physicalObject(const Murn::NetworkInterfaceInfo& info)
{
    return "{" + member("name", info.name) + ", " + member("mac", macOf(info)) + "}";
}

std::string array(const Interfaces& interfaces, std::string (*object)(const Murn::NetworkInterfaceInfo&))
{
    std::string elements;
    for (const Murn::NetworkInterfaceInfo& info : interfaces)
        elements += (elements.empty() ? "\n    " : ",\n    ") + object(info);
    return elements.empty() ? "[]" : "[" + elements + "\n  ]";
}

}  // namespace

std::string asJson(const Listing& listing)
{
    return "{\n  \"interfaces\": " + array(listing.addressed, addressedObject) +
           ",\n  \"physicalInterfaces\": " + array(listing.physical, physicalObject) + "\n}\n";
}
