// What the browser prints: UTF-8 text, aligned tables, or one JSON document.
#pragma once

#include <nlohmann/json.hpp>

#include <string>
#include <string_view>
#include <vector>

namespace Browser
{
using Json = nlohmann::ordered_json;

/// Has line ends go out as they are. Once, before anything is printed.
void PrepareConsole();

/// Writes a line of UTF-8 text, characters that would steer a terminal shown as spaces.
void PrintLine(std::string_view text = {});
/// The same to the error stream.
void PrintError(std::string_view text);

/// The number of columns that a text takes on a terminal: one for each character, two for East Asian wide ones, none
/// for combining marks.
size_t DisplayWidth(std::string_view text) noexcept;

/// The text with line breaks and other control characters as single spaces, cut to `width` columns with "…" at its end.
std::string Shorten(std::string_view text, size_t width);

/// A table with aligned columns.
class TextTable
{
public:
    struct Column
    {
        std::string title;
        bool right = false;
        /// The widest that the column gets, in terminal columns.
        size_t limit = 60;
    };

    explicit TextTable(std::vector<Column> columns) : m_columns(std::move(columns)) {}

    /// Takes one cell for each column.
    void Add(std::vector<std::string> cells) { m_rows.push_back(std::move(cells)); }
    bool Empty() const noexcept { return m_rows.empty(); }
    /// Prints the titles, a rule and the rows, every line after `indent` spaces.
    void Print(size_t indent = 0) const;

private:
    std::vector<Column> m_columns;
    std::vector<std::vector<std::string>> m_rows;
};

/// "1 message", "2 messages".
std::string Count(size_t count, std::string_view singular, std::string_view plural);
} // namespace Browser
