// Putting a report's page together, and writing it.
#include "tools/browser/ReportPage.h"

#include "common/Boundary.h"
#include "common/Text.h"
#include "tools/browser/Sha256.h"
#include "tools/browser/report/Parts.h"

#include <windows.h>

#include <array>
#include <fstream>
#include <system_error>

using namespace Common;

namespace Browser
{
namespace
{
// How every report begins, by which a later one knows that it may take its place.
constexpr std::string_view mark = "<!doctype html>\n<!-- archive-browser report -->\n";

std::string Base64(const std::vector<BYTE>& bytes)
{
    constexpr char digits[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string text;
    for (size_t index = 0; index < bytes.size(); index += 3)
    {
        const size_t count = std::min<size_t>(3, bytes.size() - index);
        unsigned group = 0;
        for (size_t place = 0; place < 3; ++place)
            group = group << 8 | (place < count ? bytes[index + place] : 0u);
        for (size_t place = 0; place < 4; ++place)
            text += place <= count ? digits[group >> (18 - 6 * place) & 63] : '=';
    }
    return text;
}

// What a content security policy calls the text of an element.
std::string PolicyHash(std::string_view text)
{
    Sha256 hash;
    hash.Add(text.data(), text.size());
    return "'sha256-" + Base64(BytesFromHex(WideFromUtf8(hash.Finish()))) + "'";
}

// JSON in which nothing can end the element that it stands in or is a line end to a script.
std::string SafeJson(const Json& data)
{
    const std::string plain = data.dump(-1, ' ', false, Json::error_handler_t::replace);
    std::string safe;
    safe.reserve(plain.size() + plain.size() / 32);
    for (size_t index = 0; index < plain.size(); ++index)
    {
        const std::string_view rest = std::string_view(plain).substr(index, 3);
        if (plain[index] == '<')
        {
            safe += "\\u003c";
        }
        else if (rest == "\xE2\x80\xA8" || rest == "\xE2\x80\xA9")
        {
            safe += rest == "\xE2\x80\xA8" ? "\\u2028" : "\\u2029";
            index += 2;
        }
        else
        {
            safe += plain[index];
        }
    }
    return safe;
}

[[noreturn]] void FailToWrite(const std::filesystem::path& file, DWORD error)
{
    const std::string said = std::error_code(static_cast<int>(error), std::system_category()).message();
    Fail(MAPI_E_DISK_ERROR, L"\"" + file.wstring() + L"\" cannot be written: " + WideFromAnsi(said) + L".");
}
} // namespace

std::string MakeReportPage(const Json& data)
{
    const std::string_view style = ReportParts::Style();
    const std::string_view script = ReportParts::Script();
    std::string page(mark);
    page += "<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
            "<meta http-equiv=\"Content-Security-Policy\" content=\"default-src 'none'; script-src " +
            PolicyHash(script) + "; style-src " + PolicyHash(style) +
            "; base-uri 'none'; form-action 'none'\">\n"
            "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n"
            "<meta name=\"color-scheme\" content=\"light dark\">\n<meta name=\"referrer\" content=\"no-referrer\">\n"
            "<title>Archive report</title>\n<style>";
    page += style;
    page += "</style>\n</head>\n<body>\n";
    page += ReportParts::Body();
    page += "<script type=\"application/json\" id=\"data\">";
    page += SafeJson(data);
    page += "</script>\n<script>";
    page += script;
    page += "</script>\n</body>\n</html>\n";
    return page;
}

void RequireReportPlace(const std::filesystem::path& file, bool force)
{
    std::error_code error;
    const std::filesystem::path folder = std::filesystem::absolute(file).parent_path();
    if (!std::filesystem::is_directory(folder, error))
        Fail(MAPI_E_NOT_FOUND, L"There is no folder \"" + folder.wstring() + L"\".");
    const auto status = std::filesystem::status(file, error);
    if (!std::filesystem::exists(status))
        return;
    if (!std::filesystem::is_regular_file(status))
        Fail(MAPI_E_COLLISION, L"\"" + file.wstring() + L"\" is not a file.");
    if (force)
        return;
    std::array<char, mark.size()> begin{};
    std::ifstream present(file, std::ios::binary);
    present.read(begin.data(), begin.size());
    if (std::string_view(begin.data(), static_cast<size_t>(present.gcount())) != mark)
    {
        Fail(MAPI_E_COLLISION,
             L"\"" + file.wstring() + L"\" is there already and is no report; --force writes over it.");
    }
}

void WriteReportPage(const std::filesystem::path& file, const std::string& page)
{
    GUID guid{};
    Check(CoCreateGuid(&guid), L"The system makes no identifier.");
    std::filesystem::path unfinished = file;
    unfinished += L"." + HexText(&guid, sizeof(guid)) + L".tmp";
    const HANDLE handle =
        CreateFileW(unfinished.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (handle == INVALID_HANDLE_VALUE)
        FailToWrite(file, GetLastError());
    DWORD error = ERROR_SUCCESS;
    for (size_t begin = 0; begin < page.size() && error == ERROR_SUCCESS;)
    {
        constexpr size_t most = 1u << 24;
        DWORD written = 0;
        if (!WriteFile(handle, page.data() + begin, static_cast<DWORD>(std::min(most, page.size() - begin)), &written,
                       nullptr))
            error = GetLastError();
        begin += written;
    }
    if (error == ERROR_SUCCESS && !FlushFileBuffers(handle))
        error = GetLastError();
    CloseHandle(handle);
    if (error == ERROR_SUCCESS &&
        !MoveFileExW(unfinished.c_str(), file.c_str(), MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH))
        error = GetLastError();
    if (error == ERROR_SUCCESS)
        return;
    DeleteFileW(unfinished.c_str());
    FailToWrite(file, error);
}
} // namespace Browser
