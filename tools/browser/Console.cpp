// UTF-8 output and aligned tables.
#include "tools/browser/Console.h"

#include "common/Text.h"

#include <fcntl.h>
#include <io.h>

#include <algorithm>
#include <cstdio>

namespace Browser
{
namespace
{
bool IsControl(unsigned char byte)
{
    return byte < 0x20 || byte == 0x7F;
}

void Write(std::FILE* stream, std::string_view text)
{
    std::string line(text);
    for (char& character : line)
        if (IsControl(static_cast<unsigned char>(character)) && character != '\n' && character != '\t')
            character = ' ';
    line += '\n';
    std::fwrite(line.data(), 1, line.size(), stream);
    std::fflush(stream);
}

// One code point of well-formed UTF-8; anything else counts as one character of its byte.
char32_t Next(std::string_view text, size_t& position)
{
    const auto byte = static_cast<unsigned char>(text[position]);
    const size_t length = byte < 0x80 ? 1 : byte >= 0xF0 ? 4 : byte >= 0xE0 ? 3 : byte >= 0xC0 ? 2 : 1;
    if (length == 1 || position + length > text.size())
    {
        ++position;
        return byte;
    }
    char32_t code = byte & (0xFFu >> (length + 1));
    for (size_t index = 1; index < length; ++index)
        code = code << 6 | (static_cast<unsigned char>(text[position + index]) & 0x3Fu);
    position += length;
    return code;
}

size_t WidthOf(char32_t code) noexcept
{
    const auto within = [code](char32_t first, char32_t last) { return code >= first && code <= last; };
    if (within(0x0300, 0x036F) || within(0x200B, 0x200F) || within(0xFE00, 0xFE0F) || code == 0xFEFF)
        return 0;
    if (within(0x1100, 0x115F) || within(0x2E80, 0xA4CF) || within(0xAC00, 0xD7A3) || within(0xF900, 0xFAFF) ||
        within(0xFE30, 0xFE6F) || within(0xFF00, 0xFF60) || within(0xFFE0, 0xFFE6) || within(0x1F300, 0x1FAFF) ||
        within(0x20000, 0x3FFFD))
    {
        return 2;
    }
    return 1;
}

std::string Pad(const std::string& text, size_t width, bool right)
{
    const size_t own = DisplayWidth(text);
    const std::string spaces(width > own ? width - own : 0, ' ');
    return right ? spaces + text : text + spaces;
}
} // namespace

void PrepareConsole()
{
    // Line ends go out as they are, so that what is piped on is the same everywhere.
    _setmode(_fileno(stdout), _O_BINARY);
    _setmode(_fileno(stderr), _O_BINARY);
}

void PrintLine(std::string_view text)
{
    Write(stdout, text);
}

void PrintError(std::string_view text)
{
    // In order with what was printed before, when both go to one place.
    std::fflush(stdout);
    Write(stderr, text);
}

size_t DisplayWidth(std::string_view text) noexcept
{
    size_t width = 0;
    for (size_t position = 0; position < text.size();)
        width += WidthOf(Next(text, position));
    return width;
}

std::string Shorten(std::string_view text, size_t width)
{
    std::string clean;
    bool blank = false;
    for (const char character : text)
    {
        const bool control = IsControl(static_cast<unsigned char>(character));
        if (!control || !blank)
            clean += control ? ' ' : character;
        blank = control;
    }
    if (DisplayWidth(clean) <= width)
        return clean;
    size_t position = 0;
    size_t used = 0;
    while (position < clean.size())
    {
        size_t next = position;
        used += WidthOf(Next(clean, next));
        if (used + 1 > width)
            break;
        position = next;
    }
    return clean.substr(0, position) + "\u2026";
}

void TextTable::Print(size_t indent) const
{
    std::vector<std::vector<std::string>> rows;
    std::vector<size_t> widths;
    widths.reserve(m_columns.size());
    for (const Column& column : m_columns)
        widths.push_back(DisplayWidth(column.title));
    for (const auto& cells : m_rows)
    {
        auto& row = rows.emplace_back();
        for (size_t index = 0; index < m_columns.size(); ++index)
        {
            row.push_back(Shorten(cells.at(index), m_columns[index].limit));
            widths[index] = std::max(widths[index], DisplayWidth(row.back()));
        }
    }
    const auto print = [&](const std::vector<std::string>& cells)
    {
        std::string line(indent, ' ');
        for (size_t index = 0; index < cells.size(); ++index)
            line += (index == 0 ? "" : "  ") + Pad(cells[index], widths[index], m_columns[index].right);
        line.erase(line.find_last_not_of(' ') + 1);
        PrintLine(line);
    };
    std::vector<std::string> titles;
    std::vector<std::string> rules;
    for (size_t index = 0; index < m_columns.size(); ++index)
    {
        titles.push_back(m_columns[index].title);
        rules.emplace_back(widths[index], '-');
    }
    print(titles);
    print(rules);
    for (const auto& row : rows)
        print(row);
}

std::string Count(size_t count, std::string_view singular, std::string_view plural)
{
    return std::to_string(count) + " " + std::string(count == 1 ? singular : plural);
}
} // namespace Browser
